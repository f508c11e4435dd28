#include <dalnim/dalbase.hpp>

#include <dalnim/mt/ReaderWriterLock.hpp>

#include <dalnim/mt/src/MutexErrors.hpp>
#include <qv/rtlapi/RX_RWLock.hpp>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

const RX_RWLock& lockOf(const void* rep)
{
    return *static_cast<const RX_RWLock*>(rep);
}

}

ReaderWriterLock::ReaderWriterLock() : rep(nullptr)
{
    translated("ReaderWriterLock()", CLASS_NAME, __LINE__, [this] { rep = new RX_RWLock; });
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
    translated("acquireForRead()", CLASS_NAME, __LINE__, [this] { lockOf(rep).rdlock(); });
    return *this;
}

const ReaderWriterLock& ReaderWriterLock::acquireForWrite() const
{
    translated("acquireForWrite()", CLASS_NAME, __LINE__, [this] { lockOf(rep).wrlock(); });
    return *this;
}

const ReaderWriterLock& ReaderWriterLock::upgradeToWrite() const
{
    translated("upgradeToWrite()", CLASS_NAME, __LINE__, [this] { lockOf(rep).upgrade(); });
    return *this;
}

void ReaderWriterLock::release() const
{
    translated("release()", CLASS_NAME, __LINE__, [this] { lockOf(rep).unlock(); });
}

bool ReaderWriterLock::try_lock() const
{
    bool isAcquired = false;
    translated("try_lock()", CLASS_NAME, __LINE__, [&] { isAcquired = lockOf(rep).tryWrlock() != 0; });
    return isAcquired;
}

bool ReaderWriterLock::try_lock_shared() const
{
    bool isAcquired = false;
    translated("try_lock_shared()", CLASS_NAME, __LINE__, [&] { isAcquired = lockOf(rep).tryRdlock() != 0; });
    return isAcquired;
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
