#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include <qv/pmx/errors.h>
#include <qv/pmx/src/perturb.hpp>
#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/src/detached.hpp>

/**
 * A place for one worker to sleep. Its condition has one waiter at most, so that a call reaches whom it
 * is meant for.
 */
class RX_ServerQueue::Bed
{
public:
    explicit Bed(RX_ServerQueue& queue) : call(queue) {}

    RX_Condition call;
    Bed* next = nullptr;
    bool isCalled = false;
};

/** The sleep of a worker that has lain down, also if its thread is ended there. The lock is held. */
class RX_ServerQueue::Rest
{
public:
    Rest(RX_ServerQueue& queue, Bed* bed) : _queue(queue), _bed(bed) {}
    Rest(const Rest&) = delete;
    Rest& operator=(const Rest&) = delete;
    ~Rest()
    {
        --_queue._idle;
        if (_bed->isCalled) {
            --_queue._called;
        } else {
            Bed** link = &_queue._sleepers;
            while (*link != _bed) {
                link = &(*link)->next;
            }
            *link = _bed->next;
        }
        _bed->next = _queue._freeBeds;
        _queue._freeBeds = _bed;
    }

    void awaitCall() const
    {
        while (!_bed->isCalled) {
            _bed->call.wait();
        }
    }

private:
    RX_ServerQueue& _queue;
    Bed* const _bed;
};

/** A thread that waits for room, which is counted already. The lock is held. */
class RX_ServerQueue::Waiting
{
public:
    explicit Waiting(RX_ServerQueue& queue) : _queue(queue) {}
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    ~Waiting()
    {
        _queue._front.waiting.fetch_sub(1, std::memory_order_relaxed);
    }

    void awaitRoom() const
    {
        while (_queue.accepts(Room::AWAITED) && !_queue.hasRoom()) {
            _queue._room.wait();
        }
    }

private:
    RX_ServerQueue& _queue;
};

/** What was pending when it was taken. */
struct RX_ServerQueue::Pending
{
    Closures older;
    Closures newer;
};

/**
 * A closure on its way from the queue: when the job goes, the closure is released, and then the
 * recorder is told; so whoever waits for quiet finds everything gone that was run.
 */
class RX_ServerQueue::Job
{
public:
    /** Takes over the reference to the closure; the recorder is to outlive the job. Both may be null. */
    Job(RX_Closure* closure, RX_ActivityRecorder* recorder) noexcept : _recorder(recorder), _closure(closure)
    {
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    /** The destructor of the closure may end the thread, which unwinds through here. */
    ~Job() noexcept(false)
    {
        if (_closure != nullptr) {
            const Record record(_recorder);
            _closure->detach();
        }
    }

    explicit operator bool() const noexcept
    {
        return _closure != nullptr;
    }
    RX_Closure& closure() const noexcept
    {
        return *_closure;
    }

private:
    /** Notifies the recorder at its end, however the release of the closure ends. */
    class Record
    {
    public:
        explicit Record(RX_ActivityRecorder* recorder) noexcept : _recorder(recorder) {}
        Record(const Record&) = delete;
        Record& operator=(const Record&) = delete;
        ~Record()
        {
            if (_recorder != nullptr) {
                _recorder->dec();
            }
        }

    private:
        RX_ActivityRecorder* const _recorder;
    };

    RX_ActivityRecorder* const _recorder;
    RX_Closure* const _closure;
};

/** A worker of the queue, which has counted it in: one thread after the other may run it. */
struct RX_ServerQueue::Worker
{
    const qv::Reference<RX_ServerQueue> queue;
    /** The removals before it was added. */
    const si_uint32_t removals;
};

/** The part of a thread in running a worker. However it ends, the queue keeps a right count of workers. */
class RX_ServerQueue::Shift
{
public:
    /** Takes over the worker. */
    explicit Shift(Worker* worker) noexcept : _worker(worker) {}
    Shift(const Shift&) = delete;
    Shift& operator=(const Shift&) = delete;
    /** With a worker left, a closure has ended the thread: another thread continues, if possible. */
    ~Shift()
    {
        if (_worker && !leaveIfRemoved() && !handOver()) {
            const RX_Locked_ locked(*_worker->queue);
            _worker->queue->countOut();
        }
    }

    void work()
    {
        RX_ServerQueue& queue = *_worker->queue;
        while (RX_Closure* const closure = queue.awaitClosure(*_worker)) {
            // The queue keeps its recorder as long as it has workers.
            const Job job(closure, queue._ar);
            qv::applyDetached(job.closure());
        }
        _worker.reset();
    }

private:
    /** Counts a worker out that must leave anyway; in one step, for another one may leave in its place. */
    bool leaveIfRemoved()
    {
        const RX_Locked_ locked(*_worker->queue);
        const bool isRemoved = _worker->queue->mustLeave(*_worker);
        if (isRemoved) {
            _worker->queue->countOut();
        }
        return isRemoved;
    }

    /** Lets a new thread run the worker, unless the system refuses one. */
    bool handOver()
    {
        if (qv::startDetached(&RX_ServerQueue::runWorker, _worker.get()) != 0) {
            return false;
        }
        // The new thread has it now.
        static_cast<void>(_worker.release());
        return true;
    }

    std::unique_ptr<Worker> _worker;
};

RX_ServerQueue::RX_ServerQueue(unsigned int capacity) : _capacity(capacity), _room(*this)
{
    _construction.complete();
}

RX_ServerQueue::~RX_ServerQueue() noexcept(false)
{
    // Workers have references, so there is none; nobody else is here either.
    drop(_front.closures, _ar);
    drop(_back, _ar);
    if (_ar != nullptr) {
        _ar->disconnect(this);
        _ar->detach();
    }
}

void RX_ServerQueue::addThreads(unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        std::unique_ptr<Worker> worker;
        {
            const RX_Locked_ locked(*this);
            if (_closed) {
                return;
            }
            worker.reset(new Worker{qv::share(this), _removals});
            countIn();
        }
        if (const int status = qv::startDetached(&RX_ServerQueue::runWorker, worker.get())) {
            const RX_Locked_ locked(*this);
            --_threadCount;
            _leaving = std::min(_leaving, _threadCount);
            throw RX_ExFatal(status);
        }
        // The thread has it now.
        static_cast<void>(worker.release());
    }
}

void RX_ServerQueue::removeThreads(unsigned int count)
{
    const RX_Locked_ front(_front.lock);
    const RX_Locked_ locked(*this);
    const si_uint32_t removed = std::min(count, _threadCount - _leaving);
    if (removed == 0) {
        return;
    }
    _leaving += removed;
    ++_removals;
    _front.isToAsk.store(true, std::memory_order_relaxed);
    callAllWorkers();
}

void RX_ServerQueue::connectActivityRecorder(RX_ActivityRecorder* ar)
{
    const RX_Locked_ locked(*this);
    if (size_nolock() != 0 || _threadCount != 0) {
        throw RX_ExFatal(__LINE__, "qv/rtlapi/src/RX_ServerQueue", QV_RX_CONDITION,
                         "size_nolock() == 0 && _threadCount == 0");
    }
    // The new one is taken first: it may be the old one.
    if (ar != nullptr) {
        ar->attach();
    }
    if (_ar != nullptr) {
        _ar->disconnect(this);
        _ar->detach();
    }
    _ar = ar;
    if (_ar != nullptr) {
        _ar->connect(this);
    }
}

void RX_ServerQueue::put(RX_Closure* const& closure)
{
    if (!offer(closure, Room::AWAITED)) {
        refuse(closure);
    }
}

void RX_ServerQueue::putProbe(RX_Closure* const& closure)
{
    if (!offer(closure, Room::PROBE)) {
        refuse(closure);
    }
}

void RX_ServerQueue::putBeyondCapacity(RX_Closure* closure)
{
    if (!offer(closure, Room::IGNORED)) {
        refuse(closure);
    }
}

void RX_ServerQueue::refusePuts()
{
    const RX_Locked_ locked(*this);
    _refusesPuts = true;
    _room.broadcast();
}

qv_bool_t RX_ServerQueue::tryPut(RX_Closure* const& closure)
{
    return offer(closure, Room::NEEDED);
}

qv_bool_t RX_ServerQueue::runPending()
{
    RX_Closure* closure = nullptr;
    qv::Reference<RX_ActivityRecorder> recorder;
    {
        const RX_Locked_ front(_front.lock);
        const RX_Locked_ locked(*this);
        closure = takeOldest();
        recorder = qv::share(_ar);
    }
    const Job job(closure, recorder.get());
    if (!job) {
        return 0;
    }
    job.closure().apply();
    return 1;
}

unsigned int RX_ServerQueue::size() const
{
    const RX_Locked_ locked(*this);
    return size_nolock();
}

void RX_ServerQueue::close()
{
    dropPending(true);
}

int RX_ServerQueue::isClosed() const
{
    const RX_Locked_ locked(*this);
    return _closed;
}

unsigned int RX_ServerQueue::size_nolock() const
{
    return static_cast<unsigned int>(_back.size()) + _front.size.load(std::memory_order_relaxed);
}

si_uint32_t RX_ServerQueue::threadCount() const
{
    const RX_Locked_ locked(*this);
    return _threadCount;
}

void RX_ServerQueue::flush()
{
    dropPending(false);
}

void* RX_ServerQueue::runWorker(void* worker)
{
    Shift(static_cast<Worker*>(worker)).work();
    return nullptr;
}

/** Whether a closure may be put at all. The caller holds the lock of the queue. */
bool RX_ServerQueue::accepts(Room room) const
{
    return !_closed && (!_refusesPuts || room == Room::PROBE);
}

/** Whether a worker that is free must end. The caller holds the lock of the queue. */
bool RX_ServerQueue::mustLeave(const Worker& worker) const
{
    return _closed || (_leaving != 0 && worker.removals != _removals);
}

bool RX_ServerQueue::hasRoom()
{
    if (_capacity == 0) {
        // Handed over directly, to a worker that sleeps (those that must leave have been called), or to one
        // of those that are idle for other reasons, as long as each closure has one that stays.
        return _sleepers != nullptr || size_nolock() + _leaving < _idle;
    }
    if (_back.size() + _frontAtMost < _capacity) {
        return true;
    }
    _frontAtMost = _front.size.load(std::memory_order_relaxed);
    return _back.size() + _frontAtMost < _capacity;
}

/** Appends a closure to the back; the caller holds the lock of the queue. */
void RX_ServerQueue::append(RX_Closure* closure)
{
    try {
        _back.push_back(closure);
    } catch (const std::bad_alloc&) {
        // This thread may have been woken for the room that it leaves.
        _room.signal();
        throw;
    }
}

/** Appends a closure and calls a worker for it; false if the queue does not accept it, or has no room. */
bool RX_ServerQueue::offer(RX_Closure* closure, Room room)
{
    Bed* called = nullptr;
    qv::Reference<RX_ServerQueue> self;
    for (bool isWaiting = false;; isWaiting = true) {
        {
            const RX_Locked_ locked(*this);
            if (isWaiting) {
                const Waiting waiting(*this);
                waiting.awaitRoom();
            }
            if (!accepts(room)) {
                return false;
            }
            if (room == Room::IGNORED || room == Room::PROBE || hasRoom()) {
                append(closure);
                if (_ar != nullptr) {
                    _ar->inc();
                }
                called = callWorker();
                if (called != nullptr) {
                    // The closure may be what keeps the owner of the queue.
                    self = qv::share(this);
                }
                break;
            }
            if (room == Room::NEEDED) {
                return false;
            }
        }
        // Who takes a closure from now on tells it.
        const RX_Locked_ front(_front.lock);
        const RX_Locked_ locked(*this);
        _front.waiting.fetch_add(1, std::memory_order_relaxed);
    }
    if (called != nullptr) {
        // Without the lock, for which the worker would have to wait at once.
        qv::perturb();
        called->call.signal();
    }
    return true;
}

/** Drops what cannot be appended any more, and tells the recorder as of any other closure. */
void RX_ServerQueue::refuse(RX_Closure* closure)
{
    qv::Reference<RX_ActivityRecorder> recorder;
    {
        const RX_Locked_ locked(*this);
        recorder = qv::share(_ar);
    }
    if (recorder) {
        recorder->inc();
    }
    const Job dropped(closure, recorder.get());
}

void RX_ServerQueue::dropPending(bool closing)
{
    // All are taken at once. Without the memory for that they are taken one by one, and the workers, if the
    // queue stays open, take theirs meanwhile: so a queue can be ended also where there is no memory.
    std::optional<Pending> all;
    try {
        all.emplace();
    } catch (const std::bad_alloc&) {
    }
    unsigned int count = 0;
    qv::Reference<RX_ActivityRecorder> recorder;
    {
        const RX_Locked_ front(_front.lock);
        const RX_Locked_ locked(*this);
        _closed = _closed || closing;
        count = size_nolock();
        if (all) {
            all->older.swap(_front.closures);
            _front.size.store(0, std::memory_order_relaxed);
            all->newer.swap(_back);
        }
        recorder = qv::share(_ar);
        _room.broadcast();
        if (_closed) {
            _front.isToAsk.store(true, std::memory_order_relaxed);
            callAllWorkers();
        }
    }
    if (all) {
        drop(all->older, recorder.get());
        drop(all->newer, recorder.get());
    } else {
        dropOneByOne(count, recorder.get());
    }
}

void RX_ServerQueue::dropOneByOne(unsigned int count, RX_ActivityRecorder* recorder)
{
    for (; count != 0; --count) {
        RX_Closure* closure = nullptr;
        {
            const RX_Locked_ front(_front.lock);
            const RX_Locked_ locked(*this);
            closure = takeOldest();
        }
        const Job dropped(closure, recorder);
    }
}

void RX_ServerQueue::drop(Closures& closures, RX_ActivityRecorder* recorder)
{
    while (!closures.empty()) {
        RX_Closure* const closure = closures.front();
        closures.pop_front();
        const Job dropped(closure, recorder);
    }
}

/** The oldest closure of the front, whose lock the caller holds; null when there is none. */
RX_Closure* RX_ServerQueue::takeFromFront()
{
    if (_front.closures.empty()) {
        return nullptr;
    }
    RX_Closure* const closure = _front.closures.front();
    _front.closures.pop_front();
    _front.size.store(static_cast<si_uint32_t>(_front.closures.size()), std::memory_order_relaxed);
    return closure;
}

/** The oldest pending closure; null when there is none. The caller holds both locks. */
RX_Closure* RX_ServerQueue::takeOldest()
{
    if (_front.closures.empty()) {
        _front.closures.swap(_back);
        _frontAtMost = static_cast<si_uint32_t>(_front.closures.size());
    }
    RX_Closure* const closure = takeFromFront();
    if (closure != nullptr && _front.waiting.load(std::memory_order_relaxed) != 0) {
        _room.signal();
    }
    return closure;
}

/** Waits, on a worker, for a closure. Null means that the worker has been counted out and must end. */
RX_Closure* RX_ServerQueue::awaitClosure(const Worker& worker)
{
    for (bool hasLooked = false;;) {
        Bed* bed = nullptr;
        {
            const RX_Locked_ front(_front.lock);
            if (!_front.isToAsk.load(std::memory_order_relaxed)
                && _front.waiting.load(std::memory_order_relaxed) == 0) {
                if (RX_Closure* const closure = takeFromFront()) {
                    return closure;
                }
            }
            const RX_Locked_ locked(*this);
            if (mustLeave(worker)) {
                countOut();
                return nullptr;
            }
            if (RX_Closure* const closure = takeOldest()) {
                return closure;
            }
            if (hasLooked || _isLooking || _capacity == 0) {
                bed = lieDown();
            } else {
                _isLooking = true;
                _isStirred.store(false, std::memory_order_relaxed);
            }
        }
        if (bed == nullptr) {
            lookOut();
            hasLooked = true;
        } else {
            const RX_Locked_ locked(*this);
            const Rest rest(*this, bed);
            rest.awaitCall();
            hasLooked = false;
        }
    }
}

/**
 * Looks for a moment, of a few microseconds, whether something comes. To sleep and to be called takes
 * longer, and that from the one who calls, too.
 */
void RX_ServerQueue::lookOut()
{
    constexpr int LOOKS = 64;
    for (int i = 0; i < LOOKS && !_isStirred.load(std::memory_order_relaxed); ++i) {
        __builtin_ia32_pause();
    }
    qv::perturb();
    const RX_Locked_ locked(*this);
    _isLooking = false;
}

/** Makes the worker one that can be called; both locks are held, so that it has missed nothing. */
RX_ServerQueue::Bed* RX_ServerQueue::lieDown()
{
    Bed* const bed = _freeBeds;
    _freeBeds = bed->next;
    bed->next = _sleepers;
    bed->isCalled = false;
    _sleepers = bed;
    ++_idle;
    if (_capacity == 0) {
        _room.signal();
    }
    return bed;
}

/**
 * Calls a worker, if one sleeps and those who are to come anyway are too few for what is pending. The
 * result is the bed whose condition is to be signalled, or null.
 */
RX_ServerQueue::Bed* RX_ServerQueue::callWorker()
{
    if (_isLooking) {
        _isStirred.store(true, std::memory_order_relaxed);
    }
    if (_sleepers == nullptr || size_nolock() <= _called + (_isLooking ? 1 : 0)) {
        return nullptr;
    }
    Bed* const bed = _sleepers;
    _sleepers = bed->next;
    bed->isCalled = true;
    ++_called;
    return bed;
}

void RX_ServerQueue::callAllWorkers()
{
    for (; _sleepers != nullptr; _sleepers = _sleepers->next) {
        _sleepers->isCalled = true;
        ++_called;
        _sleepers->call.signal();
    }
}

/** One worker more: it is about to start, and has a bed. */
void RX_ServerQueue::countIn()
{
    if (_bedCount == _threadCount) {
        _beds.emplace_front(*this);
        _beds.front().next = _freeBeds;
        _freeBeds = &_beds.front();
        ++_bedCount;
    }
    ++_threadCount;
}

/** One worker less: it is about to end. */
void RX_ServerQueue::countOut()
{
    --_threadCount;
    if (_leaving != 0) {
        --_leaving;
    }
    _front.isToAsk.store(_closed || _leaving != 0, std::memory_order_relaxed);
    // Without those who leave there may be room for a closure that is handed over.
    _room.signal();
    // Somebody may have counted on this one for what is pending.
    if (Bed* const called = callWorker()) {
        called->call.signal();
    }
}
