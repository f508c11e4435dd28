#ifndef DALNIM_MT_SRC_POOLWATCH_HPP
#define DALNIM_MT_SRC_POOLWATCH_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/mt/src/PoolFigures.hpp>
#include <dalnim/mt/src/PoolQueue.hpp>
#include <dalnim/mt/src/WatchFinding.hpp>
#include <qv/rtlapi/Reference.hpp>

#include <vector>

namespace com::kor::dal::nim::mt {

/**
 * What a Watchdog remembers of a pool. The checks take no lock of the pool.
 *
 * Thread safety: only one thread at a time may call check().
 */
class PoolWatch
{
public:
    /**
     * @param queue  the queue of the pool, with one reference, which is taken over. It collects statistics
     * @throws std::bad_alloc  if memory runs out
     */
    PoolWatch(qv::Reference<PoolQueue> queue, String name);

    /**
     * Appends what has exceeded its limit, and what no longer does, since the last call.
     * @param now  time on the clock of PoolFigures
     * @throws std::bad_alloc  if memory runs out. What is not in `findings` is found again
     */
    void check(const WatchLimits& limits, UInt64_t now, WatchFindings& findings);
    /** Returns true if this is the queue of the pool. */
    bool watches(const PoolQueue& queue) const noexcept
    {
        return _queue.get() == &queue;
    }
    /** Returns true if the pool has been shut down, all its tasks have ended, and nothing is left to log. */
    bool isOver() const;

private:
    /** The task that was logged for a worker. */
    struct Logged
    {
        /** PoolFigures::Running::number of the task; 0 for none. */
        UInt64_t number = 0;
        UInt64_t begun = 0;
        /** Name and ID of the task. */
        String label;
    };

    void checkTask(unsigned int worker, UInt64_t limit, UInt64_t now, WatchFindings& findings);
    void checkQueue(UInt64_t limit, UInt64_t now, WatchFindings& findings);
    std::vector<WatchFinding::Thread> runningThreads() const;

    const qv::Reference<PoolQueue> _queue;
    const PoolFigures& _figures;
    const String _name;
    std::vector<Logged> _tasks;
    /** Number of tasks that had begun at `_movedAt`. */
    UInt64_t _begun = 0;
    /** Time at which the queue was last seen to move or to be empty; 0 before the first check. */
    UInt64_t _movedAt = 0;
    bool _isQueueLogged = false;
};

}

#endif
