#ifndef DALNIM_MT_SRC_TASKWAITBUCKET_HPP
#define DALNIM_MT_SRC_TASKWAITBUCKET_HPP

#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>
#include <qv/pmx/cond.h>

class RX_AbsTime;

namespace com::kor::dal::nim::mt {

class Task;

/**
 * A bucket of the parking lot in which threads wait for tasks. A fixed number of buckets serves all tasks; a
 * task's bucket is found by its address alone. The thread that sets a state therefore accesses nothing of the
 * task after the store of that state, which allows the owner to destroy the task. A task without waiters
 * costs no lock. A thread may be woken for another task of the same bucket: test in a loop.
 *
 * The mutexes come last in the order of locks: nothing is acquired, and no user code runs, under one. fork()
 * does not acquire them, since each word that they guard is valid at any time; the child reinitialises them.
 *
 * Failures raise RX_Exception with the system's number. Thread safety: any thread may call any operation.
 */
class DALNIM_CAPABILITY("mutex") TaskWaitBucket
{
public:
    /** Holds the mutex of a bucket for a scope. */
    class Lock;

    constexpr TaskWaitBucket() noexcept : mutex(false), changed{PTHREAD_COND_INITIALIZER} {}

    /** Returns the bucket of a task, which may have been destroyed. */
    static TaskWaitBucket& of(const Task* task) noexcept;

    /** Wakes all threads that wait in this bucket. */
    void wakeAll() DALNIM_EXCLUDES(this);

    /** Initialises the condition. In the child of a fork, where no thread waits, also the mutex. */
    void initialize(bool isForkedChild);

private:
    sys::internal::ForkSafeMutex mutex;
    /** On the monotonic clock after initialize(). */
    si_cond_t changed;
};

class DALNIM_SCOPED_CAPABILITY TaskWaitBucket::Lock
{
public:
    explicit Lock(TaskWaitBucket& lockedBucket) DALNIM_ACQUIRE(lockedBucket);
    ~Lock() noexcept(false) DALNIM_RELEASE();

    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    /** Waits until this bucket is woken. Returns false if the deadline has passed. */
    bool waitUntil(const RX_AbsTime& deadline) const;
    /** Wakes all threads that wait in this bucket. */
    void wakeAll() const;

private:
    TaskWaitBucket& bucket;
};

}

#endif
