#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/RecordMutex.hpp>

#include <dalnim/sys/SysError.hpp>

#include <exception>

namespace com::kor::dal::nim::log {

namespace {

void check(qv_err_t status)
{
    if (status != 0) {
        throw sys::system_error(status);
    }
}

}

sys::internal::ForkSafeMutex RecordMutex::mutex(false);

// If locking fails, the constructor throws.
DALNIM_NO_LOCK_ANALYSIS RecordLock::RecordLock() : exceptions(std::uncaught_exceptions())
{
    check(RecordMutex::mutex.lock());
}

// A failed unlock is reported like any other lock failure.
RecordLock::~RecordLock() noexcept(false) // NOLINT(bugprone-exception-escape)
{
    const qv_err_t status = RecordMutex::mutex.unlock();
    if (std::uncaught_exceptions() == exceptions) {
        check(status);
    }
}

}
