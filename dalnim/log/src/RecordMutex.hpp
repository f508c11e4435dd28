#ifndef DALNIM_LOG_SRC_RECORDMUTEX_HPP
#define DALNIM_LOG_SRC_RECORDMUTEX_HPP

#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>
#include <qv/pmx/thread_safety.h>

namespace com::kor::dal::nim::log {

/**
 * The mutex that serialises the records of all loggers that do not override Log::log(). User code runs while
 * it is held, and may log to other loggers: it is acquired before the locks of a Write.
 */
class RecordMutex
{
public:
    RecordMutex() = delete;

    static sys::internal::ForkSafeMutex mutex;
};

/** Holds the record mutex for a scope. Throws sys::system_error if it cannot be locked or unlocked. */
class DALNIM_SCOPED_CAPABILITY RecordLock
{
public:
    RecordLock() DALNIM_ACQUIRE(RecordMutex::mutex);
    /** Does not throw while another exception is propagating. */
    ~RecordLock() noexcept(false) DALNIM_RELEASE(); // NOLINT(bugprone-exception-escape)

    RecordLock(const RecordLock&) = delete;
    RecordLock& operator=(const RecordLock&) = delete;

private:
    /** Number of exceptions that were propagating when the mutex was locked. */
    const int exceptions;
};

}

#endif
