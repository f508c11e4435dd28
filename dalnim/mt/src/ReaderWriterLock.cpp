#include <dalnim/dalbase.hpp>

#include <dalnim/mt/ReaderWriterLock.hpp>

#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>
#include <qv/rtlapi/RX_RWLock.hpp>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

using sys::internal::translateRXErrors;

// The analysis does not know that a lambda acquires or releases the lock for the function that contains it.

namespace {

const RX_RWLock& lockOf(const void* rep)
{
    return *static_cast<const RX_RWLock*>(rep);
}

}

ReaderWriterLock::ReaderWriterLock() : rep(nullptr)
{
    translateRXErrors("ReaderWriterLock()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                      [this] { rep = new RX_RWLock; });
}

ReaderWriterLock::~ReaderWriterLock()
{
    try {
        delete static_cast<RX_RWLock*>(rep);
    } catch (...) {
    }
    rep = nullptr;
}

const ReaderWriterLock& ReaderWriterLock::acquireForRead() const
{
    translateRXErrors("acquireForRead()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                      [this]() DALNIM_NO_LOCK_ANALYSIS { lockOf(rep).rdlock(); });
    return *this;
}

const ReaderWriterLock& ReaderWriterLock::acquireForWrite() const
{
    translateRXErrors("acquireForWrite()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                      [this]() DALNIM_NO_LOCK_ANALYSIS { lockOf(rep).wrlock(); });
    return *this;
}

const ReaderWriterLock& ReaderWriterLock::upgradeToWrite() const
{
    translateRXErrors("upgradeToWrite()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                      [this]() DALNIM_NO_LOCK_ANALYSIS { lockOf(rep).upgrade(); });
    return *this;
}

void ReaderWriterLock::release() const
{
    translateRXErrors("release()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                      [this]() DALNIM_NO_LOCK_ANALYSIS { lockOf(rep).unlock(); });
}

bool ReaderWriterLock::try_lock() const
{
    return translateRXErrors("try_lock()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                             [this] { return lockOf(rep).tryWrlock() != 0; });
}

bool ReaderWriterLock::try_lock_shared() const
{
    return translateRXErrors("try_lock_shared()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                             [this] { return lockOf(rep).tryRdlock() != 0; });
}

bool ReaderWriterLock::release(const std::nothrow_t&) const noexcept
{
    try {
        lockOf(rep).unlock();
        return true;
    } catch (...) {
        return false;
    }
}

}
