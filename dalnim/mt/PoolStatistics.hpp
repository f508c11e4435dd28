#ifndef DALNIM_MT_POOLSTATISTICS_HPP
#define DALNIM_MT_POOLSTATISTICS_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::mt {

/**
 * The figures of a pool, as ThreadPool::statistics() returns them. They count the tasks that were added since
 * the call of ThreadPool::collectStatistics(), and only increase, except for `pending` and `running`.
 *
 * The figures are read one after the other while the workers go on. They are consistent in that no task is in
 * a later stage without being in the earlier ones: `thrown` is at most `finished`, `pending` is never
 * negative, and `running` is at most the number of workers.
 *
 * Thread safety: plain values, as for an `int`.
 */
struct DALNIM_API PoolStatistics
{
    /** Numbers of tasks by a time, in buckets that are limited by the powers of two in microseconds. */
    struct DALNIM_API Histogram
    {
        /** Number of buckets. */
        static constexpr unsigned int BUCKETS = 32;

        /**
         * Number of tasks in each bucket: below 1 microsecond; for a bucket i from 1 to 30, from 2^(i-1) to
         * below 2^i microseconds; and in the last one, all longer times, from 2^30 microseconds (18 minutes).
         */
        UInt64_t counts[BUCKETS] = {};
        /** Sum of the times, in microseconds, each rounded down. */
        UInt64_t microseconds = 0;

        /** Returns the number of tasks in all buckets. */
        UInt64_t count() const noexcept;
        /**
         * Returns an upper bound of the time that a part of the tasks has not exceeded: the limit of the
         * bucket in which that part is reached, in microseconds. Returns 0 if there are no tasks.
         * @param part  such as 0.5 for the median
         */
        UInt64_t quantile(double part) const noexcept;

        /** Returns the bucket of a time in microseconds. */
        static unsigned int bucket(UInt64_t microseconds) noexcept;
        /** Returns the limit of a bucket other than the last, in microseconds: its times are below it. */
        static UInt64_t limit(unsigned int bucket) noexcept
        {
            return UInt64_t(1) << bucket;
        }
    };

    /** Name of the pool. */
    String name;
    /** ID of the pool. */
    TaskID_t id = 0;
    /** Number of workers. */
    UInt32_t workers = 0;
    /** Whether the pool collects statistics. If it does not, the numbers below are 0. */
    bool isCollecting = false;

    /** Number of tasks that were queued. */
    UInt64_t submitted = 0;
    /** Number of tasks that were not queued, because the pool was full or shut down. */
    UInt64_t refused = 0;
    /** Number of tasks that were queued and then discarded by a shutdown, or by a failure of add(). */
    UInt64_t discarded = 0;
    /** Number of tasks that have ended, in any way. */
    UInt64_t finished = 0;
    /** Number of tasks among these that have ended by an exception. */
    UInt64_t thrown = 0;
    /** Number of tasks that wait for a worker, including those of threads that are blocked in add(). */
    UInt64_t pending = 0;
    /** Number of tasks that are running. */
    UInt64_t running = 0;

    /** Times from add() to the start of the task, of all tasks that were started. */
    Histogram waitingTime;
    /** Times from the start of the task to its end, of all tasks that have ended. */
    Histogram runningTime;
};

}

#endif
