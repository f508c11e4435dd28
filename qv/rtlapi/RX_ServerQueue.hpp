#ifndef QV_RTLAPI_RX_SERVERQUEUE_HPP
#define QV_RTLAPI_RX_SERVERQUEUE_HPP

#include <atomic>
#include <deque>
#include <forward_list>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Lockable.hpp>

class RX_ActivityRecorder;
class RX_Closure;

namespace qv {
class ServerQueueAccess;
}

/**
 * A queue of closures that its own worker threads run, the oldest first.
 *
 * A worker holds a reference to the queue, so the owner may `detach` while closures run; it calls
 * `close` before, or the idle workers keep the queue for good. An exception that leaves a closure
 * ends the process, as with RX_Thread. If a closure ends its thread, by pthread_exit or because it is
 * cancelled, the closure is released, and another thread takes over as the worker before this one ends;
 * only if the system refuses that thread does the queue have one worker less.
 *
 * A put operation transfers one reference to the queue, which releases it once the closure was run or
 * dropped; if an operation throws, the caller keeps the reference. An open queue drops nothing unless it
 * is flushed: without workers the closures stay pending until threads are added. A closed queue drops
 * immediately what is put. The recorder is notified of every closure, first by `inc`, and when the closure is
 * gone by `dec`.
 *
 * Thread safety: every operation may be called from any thread, also from a closure that the queue
 * runs, except `size_nolock`. The lock is not held while foreign code runs.
 */
class DALNIM_API RX_ServerQueue : public RX_Lockable
{
public:
    /**
     * An open queue without threads.
     *
     * @param capacity  how many closures may be pending; with 0, `put` waits for a worker that is free
     */
    explicit RX_ServerQueue(unsigned int capacity);

    /**
     * Starts worker threads; none on a closed queue. When the system refuses one, raises RX_Exception
     * with its number, and those that were started before stay.
     */
    void addThreads(unsigned int count);

    /**
     * Makes that many workers, or as many as there are, end when they are next free. They leave the
     * pending closures to the workers that remain or that are added later. Workers that are added after
     * this call are not affected by it.
     */
    void removeThreads(unsigned int count);

    /**
     * Reports to `ar`, or with null to nobody, from now on. Raises RX_ExFatal with the code 51459
     * unless the queue is empty and without threads.
     */
    void connectActivityRecorder(RX_ActivityRecorder* ar);

    ~RX_ServerQueue() noexcept(false) override;

    /** Appends a closure, also if there is no worker; waits while there is no room. */
    virtual void put(RX_Closure* const& closure);
    /** Appends a closure, whether there is room or not. */
    virtual void putProbe(RX_Closure* const& closure);
    /** Appends a closure if there is room: 1. If not, or if the queue is closed, 0: the caller keeps it. */
    virtual qv_bool_t tryPut(RX_Closure* const& closure);
    /** Runs the oldest pending closure on the calling thread, 1, or 0 when there is none. Exceptions pass. */
    virtual qv_bool_t runPending();
    /** The number of pending closures. */
    virtual unsigned int size() const;
    /** Drops all pending closures, and ends the workers once they are through with the running ones. */
    virtual void close();
    /** Not 0 once the queue was closed. */
    virtual int isClosed() const;
    /** The number of pending closures; the caller holds the lock of the queue. */
    virtual unsigned int size_nolock() const;
    /** The number of workers. */
    virtual si_uint32_t threadCount() const;
    /** Drops all pending closures. */
    virtual void flush();

private:
    friend class qv::ServerQueueAccess;

    class Bed;
    class Job;
    struct Pending;
    class Rest;
    class Shift;
    class Waiting;
    struct Worker;
    typedef std::deque<RX_Closure*> Closures;
    /** What a put operation does if there is no room; PROBE also enters a queue that refuses the others. */
    enum class Room { AWAITED, NEEDED, IGNORED, PROBE };

    static constexpr unsigned int CACHE_LINE = 64;

    static void* runWorker(void* worker);

    void putBeyondCapacity(RX_Closure* closure);
    void refusePuts();
    bool accepts(Room room) const;
    bool mustLeave(const Worker& worker) const;
    bool hasRoom();
    void append(RX_Closure* closure);
    bool offer(RX_Closure* closure, Room room);
    void refuse(RX_Closure* closure);
    void dropPending(bool closing);
    void dropOneByOne(unsigned int count, RX_ActivityRecorder* recorder);
    static void drop(Closures& closures, RX_ActivityRecorder* recorder);
    RX_Closure* takeFromFront();
    RX_Closure* takeOldest();
    RX_Closure* awaitClosure(const Worker& worker);
    void lookOut();
    Bed* lieDown();
    Bed* callWorker();
    void callAllWorkers();
    void countIn();
    void countOut();

    /**
     * What the workers take from, the oldest closures: whenever it is empty, all that was put since moves
     * here. So those who take and those who put seldom meet, on a lock or on a cache line.
     */
    struct alignas(CACHE_LINE) Front
    {
        /** Guards what follows. Taken before the lock of the queue. */
        RX_Mutex lock;
        Closures closures;
        /** How many these are; also read under the lock of the queue alone, when it may go down. */
        std::atomic<si_uint32_t> size{0};
        /** Threads that wait for room. Goes up under both locks, and down under that of the queue. */
        std::atomic<si_uint32_t> waiting{0};
        /** Whether a worker is to look at the state of the queue first. Set under both locks. */
        std::atomic<bool> isToAsk{false};
    };

    Construction _construction{*this};
    Front _front;
    alignas(CACHE_LINE) const unsigned int _capacity;
    // All that follows is guarded by the lock of the queue.
    Closures _back;
    /** The size of the front at some time since it was filled. */
    si_uint32_t _frontAtMost = 0;
    /** As many as there ever were workers at once; they stay as long as the queue. */
    std::forward_list<Bed> _beds;
    /** Where no worker sleeps, or is still to get up. */
    Bed* _freeBeds = nullptr;
    /** Where a worker sleeps that nobody has called, the last to lie down first. */
    Bed* _sleepers = nullptr;
    RX_Condition _room;
    RX_ActivityRecorder* _ar = nullptr;
    si_uint32_t _bedCount = 0;
    si_uint32_t _threadCount = 0;
    /** How many workers must end instead of running another closure. */
    si_uint32_t _leaving = 0;
    /** How many calls have removed workers: only workers from before the last one may leave. */
    si_uint32_t _removals = 0;
    /** Workers that sleep, or were called and do not run yet. */
    si_uint32_t _idle = 0;
    /** Those of them that were called. */
    si_uint32_t _called = 0;
    /** Whether a worker looks out before it sleeps: one at a time. It comes for what is put meanwhile. */
    bool _isLooking = false;
    /** That something was put; what it looks at. */
    std::atomic<bool> _isStirred{false};
    /** Whether only probes are accepted: the pool is shutting down. */
    bool _refusesPuts = false;
    bool _closed = false;
};

#endif
