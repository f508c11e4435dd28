#include <dalnim/dalbase.hpp>

#include <dalnim/mt/ReaderWriterLock.hpp>

#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>
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
    const sys::StackTrack track("ReaderWriterLock()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    sys::internal::translateRXErrors([this] { rep = new RX_RWLock; });
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
    const sys::StackTrack track("acquireForRead()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    sys::internal::translateRXErrors([this] { lockOf(rep).rdlock(); });
    return *this;
}

const ReaderWriterLock& ReaderWriterLock::acquireForWrite() const
{
    const sys::StackTrack track("acquireForWrite()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    sys::internal::translateRXErrors([this] { lockOf(rep).wrlock(); });
    return *this;
}

const ReaderWriterLock& ReaderWriterLock::upgradeToWrite() const
{
    const sys::StackTrack track("upgradeToWrite()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    sys::internal::translateRXErrors([this] { lockOf(rep).upgrade(); });
    return *this;
}

void ReaderWriterLock::release() const
{
    const sys::StackTrack track("release()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    sys::internal::translateRXErrors([this] { lockOf(rep).unlock(); });
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
