#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include <qv/pmx/errors.h>
#include <qv/pmx/thread.h>
#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/Reference.hpp>
#include <qv/rtlapi/src/DequeuedClosure.hpp>
#include <qv/rtlapi/src/IdleWorkers.hpp>
#include <qv/rtlapi/src/KernelName.hpp>
#include <qv/rtlapi/src/ServerQueueAccess.hpp>
#include <qv/rtlapi/src/TwoLockQueue.hpp>
#include <qv/rtlapi/src/detached.hpp>

using qv::DequeuedClosure;
using qv::IdleWorkers;
using qv::ServerQueueAccess;
using qv::TwoLockQueue;

namespace {

__attribute__((tls_model("initial-exec"))) thread_local ServerQueueAccess::CurrentWorker current_worker = {
    nullptr, 0};

}

/** The state of a queue besides its recorder and its number of threads, and everything that changes it. */
class __attribute__((visibility("hidden"))) RX_ServerQueue::Implementation
{
public:
    /** What a put operation does if the queue is full; PROBE also enters a queue that refuses the others. */
    enum class IfFull { BLOCK, FAIL, EXCEED, PROBE };

    Implementation(RX_ServerQueue& queue, unsigned int capacity);

    void addThreads(unsigned int count) DALNIM_EXCLUDES(_queue);
    void removeThreads(unsigned int count) DALNIM_EXCLUDES(_queue);
    bool enqueue(RX_Closure* closure, IfFull policy) DALNIM_EXCLUDES(_queue);
    void reject(RX_Closure* closure) DALNIM_EXCLUDES(_queue);
    bool runPending() DALNIM_EXCLUDES(_queue);
    unsigned int discardPending(bool closing) DALNIM_EXCLUDES(_queue);
    void discardAtEnd();
    void refusePuts() DALNIM_EXCLUDES(_queue);
    bool isClosed() const DALNIM_EXCLUDES(_queue);
    std::vector<ServerQueueAccess::BusyWorker> busyWorkers() const DALNIM_EXCLUDES(_queue);
    void setThreadName(const qv::KernelName& name) DALNIM_EXCLUDES(_queue);
    unsigned int size() const DALNIM_REQUIRES(_queue, _pending.producerMutex(), _idle.mutex());

private:
    class Lock;
    class Worker;
    class WorkerThread;

    static void* runWorker(void* worker);

    bool acceptsWork(IfFull policy) const DALNIM_REQUIRES(_queue);
    bool hasCapacity() DALNIM_REQUIRES(_queue, _pending.producerMutex(), _idle.mutex());
    void deliver(IdleWorkers::Wakeup wakeup) DALNIM_EXCLUDES(_queue);
    static void discard(TwoLockQueue::Closures& closures, RX_ActivityRecorder* recorder);
    unsigned int discardOneByOne(unsigned int count, RX_ActivityRecorder* recorder) DALNIM_EXCLUDES(_queue);
    RX_Closure* dequeue(Worker& worker) DALNIM_EXCLUDES(_queue);
    std::unique_ptr<Worker> addWorker() DALNIM_EXCLUDES(_queue);
    void cancelWorker(Worker& worker) DALNIM_EXCLUDES(_queue);
    void enter(Worker& worker) DALNIM_EXCLUDES(_queue);
    void unlink(Worker& worker) DALNIM_REQUIRES(_queue);
    void removeWorker(Worker& worker) DALNIM_REQUIRES(_queue, _pending.producerMutex(), _idle.mutex());
    bool mustStop(const Worker& worker) const DALNIM_REQUIRES(_queue);

    RX_ServerQueue& _queue;
    /** The lock of the queue, which is also that of the producers of `_pending`. */
    RX_Mutex& _mutex;
    const unsigned int _capacity;
    TwoLockQueue _pending;
    IdleWorkers _idle;
    /** Number of workers that must end instead of running another closure. */
    si_uint32_t _threadsToStop DALNIM_GUARDED_BY(_queue) = 0;
    /** Number of calls that have removed workers: only workers from before the last one may stop. */
    si_uint32_t _removals DALNIM_GUARDED_BY(_queue) = 0;
    /** Number of workers that have been added so far. */
    unsigned int _workersAdded DALNIM_GUARDED_BY(_queue) = 0;
    /** Whether only probes are accepted: the pool is shutting down. */
    bool _refusesPuts DALNIM_GUARDED_BY(_queue) = false;
    bool _isClosed DALNIM_GUARDED_BY(_queue) = false;
    /** List of the registered workers. */
    Worker* _workers DALNIM_GUARDED_BY(_queue) DALNIM_PT_GUARDED_BY(_queue) = nullptr;
    /** Name of the threads of the workers; empty for none. */
    qv::KernelName _threadName DALNIM_GUARDED_BY(_queue);
};

/**
 * Holds the lock of the queue for a scope. Producers and idle workers use the same lock; the analysis knows
 * it by three names.
 */
class DALNIM_SCOPED_CAPABILITY RX_ServerQueue::Implementation::Lock
{
public:
    // The analysis sees one lock acquired, under a fourth name.
    DALNIM_NO_LOCK_ANALYSIS explicit Lock(const Implementation& owner)
        DALNIM_ACQUIRE(owner._queue, owner._pending.producerMutex(), owner._idle.mutex())
        : _locked(owner._mutex)
    {
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() noexcept(false) DALNIM_RELEASE() = default;

private:
    const RX_Locked_ _locked;
};

/**
 * A worker's reference to the queue and its registration. Several threads may run it, one after the other;
 * the present one owns it.
 */
class RX_ServerQueue::Implementation::Worker
{
public:
    Worker(RX_ServerQueue& owner, unsigned int ownIndex, si_uint32_t removalCount,
           IdleWorkers::Waiter& ownWaiter) noexcept
        : queue(qv::share(&owner)), index(ownIndex), removals(removalCount), waiter(ownWaiter)
    {
    }

    const qv::Reference<RX_ServerQueue> queue;
    /** Number of workers that were added before this one. */
    const unsigned int index;
    /** Value of `_removals` when the worker was added. */
    const si_uint32_t removals;
    IdleWorkers::Waiter& waiter;
    /** The next worker of the list; guarded by the lock of the queue. */
    Worker* next = nullptr;
    /** ID of the present thread, or 0 before it has started; guarded by the lock of the queue. */
    ThreadID_t thread = 0;
};

/** A thread that runs a worker. However the thread ends, the number of workers remains correct. */
class RX_ServerQueue::Implementation::WorkerThread
{
public:
    /** Takes over the worker. */
    explicit WorkerThread(Worker* worker) noexcept
        : _worker(worker), _implementation(*worker->queue->_implementation)
    {
    }
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;
    /** If the worker has not been unregistered, a closure has ended the thread: a new one continues. */
    ~WorkerThread()
    {
        current_worker = {nullptr, 0};
        if (_worker && !removeIfStopped() && !handOver()) {
            const Lock locked(_implementation);
            _implementation.removeWorker(*_worker);
        }
    }

    void run()
    {
        current_worker = {_worker->queue.get(), _worker->index};
        _implementation.enter(*_worker);
        RX_ActivityRecorder* const recorder = connectedRecorder();
        while (RX_Closure* const closure = _implementation.dequeue(*_worker)) {
            const DequeuedClosure dequeued(closure, recorder);
            qv::applyDetached(*dequeued);
        }
        _worker.reset();
    }

private:
    // Without the lock: the recorder cannot change as long as the queue has workers.
    DALNIM_NO_LOCK_ANALYSIS RX_ActivityRecorder* connectedRecorder() const
    {
        return _worker->queue->_ar;
    }

    /** Unregisters a worker that must stop. Check and change are one step, as another may stop instead. */
    bool removeIfStopped()
    {
        const Lock locked(_implementation);
        const bool isStopped = _implementation.mustStop(*_worker);
        if (isStopped) {
            _implementation.removeWorker(*_worker);
        }
        _worker->thread = 0;
        return isStopped;
    }

    /** Starts a new thread for the worker. Returns false if the system cannot create one. */
    bool handOver()
    {
        if (qv::startDetached(&Implementation::runWorker, _worker.get()) != 0) {
            return false;
        }
        // Owned by the new thread.
        static_cast<void>(_worker.release());
        return true;
    }

    std::unique_ptr<Worker> _worker;
    /** Exists as long as the worker. */
    Implementation& _implementation;
};

RX_ServerQueue::Implementation::Implementation(RX_ServerQueue& queue, unsigned int capacity)
    : _queue(queue), _mutex(queue), _capacity(capacity), _pending(_mutex, capacity), _idle(_mutex)
{
}

void RX_ServerQueue::Implementation::addThreads(unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        std::unique_ptr<Worker> worker = addWorker();
        if (!worker) {
            return;
        }
        if (const int status = qv::startDetached(&Implementation::runWorker, worker.get())) {
            cancelWorker(*worker);
            throw RX_ExFatal(status);
        }
        // Owned by the new thread.
        static_cast<void>(worker.release());
    }
}

void RX_ServerQueue::Implementation::removeThreads(unsigned int count)
{
    const RX_Locked_ consumer(_pending.consumerMutex());
    const Lock locked(*this);
    const si_uint32_t removed = std::min(count, _queue._threadCount - _threadsToStop);
    if (removed == 0) {
        return;
    }
    _threadsToStop += removed;
    ++_removals;
    _pending.setMustCheckState(true);
    _idle.wakeAll();
}

/** Appends a closure and wakes a worker if needed. Returns false if the queue accepts no work or is full. */
bool RX_ServerQueue::Implementation::enqueue(RX_Closure* closure, IfFull policy)
{
    for (bool isBlocked = false;; isBlocked = true) {
        IdleWorkers::Wakeup wakeup;
        qv::Reference<RX_ServerQueue> self;
        bool isEnqueued = false;
        {
            const Lock locked(*this);
            if (isBlocked) {
                const TwoLockQueue::BlockedPut blocked(_pending);
                while (acceptsWork(policy) && !hasCapacity()) {
                    blocked.wait();
                }
            }
            if (!acceptsWork(policy)) {
                return false;
            }
            isEnqueued = policy == IfFull::EXCEED || policy == IfFull::PROBE || hasCapacity();
            if (isEnqueued) {
                _pending.push(closure);
                if (_queue._ar != nullptr) {
                    _queue._ar->inc();
                }
                wakeup = _idle.wakeFor(_pending.size());
                if (wakeup) {
                    // The closure may hold the last reference to the owner of the queue.
                    self = qv::share(&_queue);
                }
            } else if (policy == IfFull::FAIL) {
                return false;
            }
        }
        if (isEnqueued) {
            if (wakeup) {
                deliver(wakeup);
            }
            return true;
        }
        // From here on, a worker that removes a closure signals this thread.
        const RX_Locked_ consumer(_pending.consumerMutex());
        const Lock locked(*this);
        _pending.addBlockedPut();
    }
}

bool RX_ServerQueue::Implementation::runPending()
{
    RX_Closure* closure = nullptr;
    qv::Reference<RX_ActivityRecorder> recorder;
    {
        const RX_Locked_ consumer(_pending.consumerMutex());
        const Lock locked(*this);
        closure = _pending.pop();
        recorder = qv::share(_queue._ar);
    }
    const DequeuedClosure dequeued(closure, recorder.get());
    if (!dequeued) {
        return false;
    }
    (*dequeued).apply();
    return true;
}

/** Discards the pending closures, and returns their number. */
unsigned int RX_ServerQueue::Implementation::discardPending(bool closing)
{
    // All pending closures are drained in one step. Without the memory for that they are discarded one by
    // one, while the workers of a queue that stays open run some of them: a queue can be closed without
    // memory.
    std::optional<TwoLockQueue::DrainedClosures> all;
    try {
        all.emplace();
    } catch (const std::bad_alloc&) {
    }
    unsigned int count = 0;
    qv::Reference<RX_ActivityRecorder> recorder;
    {
        const RX_Locked_ consumer(_pending.consumerMutex());
        const Lock locked(*this);
        _isClosed = _isClosed || closing;
        count = _pending.size();
        if (all) {
            _pending.drain(*all);
        }
        recorder = qv::share(_queue._ar);
        _pending.wakeBlockedPuts();
        if (_isClosed) {
            _pending.setMustCheckState(true);
            _idle.wakeAll();
        }
    }
    if (all) {
        discard(all->older, recorder.get());
        discard(all->newer, recorder.get());
        return count;
    }
    return discardOneByOne(count, recorder.get());
}

/** Discards all pending closures of a queue that is being destroyed. */
// Without the locks: there are no workers, and no other thread uses the queue.
DALNIM_NO_LOCK_ANALYSIS void RX_ServerQueue::Implementation::discardAtEnd()
{
    while (RX_Closure* const closure = _pending.pop()) {
        const DequeuedClosure discarded(closure, _queue._ar);
    }
}

void RX_ServerQueue::Implementation::refusePuts()
{
    const Lock locked(*this);
    _refusesPuts = true;
    _pending.wakeBlockedPuts();
}

bool RX_ServerQueue::Implementation::isClosed() const
{
    const Lock locked(*this);
    return _isClosed;
}

std::vector<ServerQueueAccess::BusyWorker> RX_ServerQueue::Implementation::busyWorkers() const
{
    std::vector<ServerQueueAccess::BusyWorker> busy;
    // No memory is allocated while the lock is held. If workers are added in between, some are omitted.
    busy.reserve(_queue.threadCount());
    const Lock locked(*this);
    for (const Worker* worker = _workers; worker != nullptr; worker = worker->next) {
        if (!_idle.isIdle(worker->waiter) && busy.size() < busy.capacity()) {
            busy.push_back({worker->index, worker->thread});
        }
    }
    return busy;
}

void RX_ServerQueue::Implementation::setThreadName(const qv::KernelName& name)
{
    // With the lock held: a worker that is registered has not ended, so its thread ID is not used again.
    const Lock locked(*this);
    _threadName = name;
    for (const Worker* worker = _workers; worker != nullptr; worker = worker->next) {
        if (worker->thread != 0) {
            name.applyTo(worker->thread);
        }
    }
}

/** Returns the number of pending closures. */
unsigned int RX_ServerQueue::Implementation::size() const
{
    return _pending.size();
}

void* RX_ServerQueue::Implementation::runWorker(void* worker)
{
    WorkerThread(static_cast<Worker*>(worker)).run();
    return nullptr;
}

/** Returns true if a closure may be put, apart from the capacity. */
bool RX_ServerQueue::Implementation::acceptsWork(IfFull policy) const
{
    return !_isClosed && (!_refusesPuts || policy == IfFull::PROBE);
}

/** Returns true if the queue is not full. */
bool RX_ServerQueue::Implementation::hasCapacity()
{
    if (_capacity == 0) {
        // A closure is handed to a worker that has not been woken (those that must stop have been), or to one
        // that is idle for another reason, provided that each pending closure has one that does not stop.
        return _idle.hasAny() || _pending.size() + _threadsToStop < _idle.count();
    }
    return _pending.hasCapacity();
}

/** Delivers a wake-up. If a spinning worker does not respond, another worker is woken as well. */
void RX_ServerQueue::Implementation::deliver(IdleWorkers::Wakeup wakeup)
{
    while (!_idle.deliver(wakeup)) {
        const Lock locked(*this);
        wakeup = _idle.wakeFor(_pending.size());
        if (!wakeup) {
            return;
        }
    }
}

/** Discards a closure that was not appended, and reports it to the recorder like any other closure. */
void RX_ServerQueue::Implementation::reject(RX_Closure* closure)
{
    qv::Reference<RX_ActivityRecorder> recorder;
    {
        const Lock locked(*this);
        recorder = qv::share(_queue._ar);
    }
    if (recorder) {
        recorder->inc();
    }
    const DequeuedClosure rejected(closure, recorder.get());
}

void RX_ServerQueue::Implementation::discard(TwoLockQueue::Closures& closures, RX_ActivityRecorder* recorder)
{
    while (!closures.empty()) {
        RX_Closure* const closure = closures.front();
        closures.pop_front();
        const DequeuedClosure discarded(closure, recorder);
    }
}

/** Discards up to `count` closures, and returns the number of those that were still pending. */
unsigned int RX_ServerQueue::Implementation::discardOneByOne(unsigned int count,
                                                             RX_ActivityRecorder* recorder)
{
    unsigned int discardedCount = 0;
    for (; count != 0; --count) {
        RX_Closure* closure = nullptr;
        {
            const RX_Locked_ consumer(_pending.consumerMutex());
            const Lock locked(*this);
            closure = _pending.pop();
        }
        const DequeuedClosure discarded(closure, recorder);
        discardedCount += discarded ? 1U : 0U;
    }
    return discardedCount;
}

/** Blocks until a closure is available. Returns null if the worker was unregistered and must end. */
RX_Closure* RX_ServerQueue::Implementation::dequeue(Worker& worker)
{
    for (;;) {
        {
            const RX_Locked_ consumer(_pending.consumerMutex());
            if (RX_Closure* const closure = _pending.popConsumerSide()) {
                return closure;
            }
            const Lock locked(*this);
            if (mustStop(worker)) {
                removeWorker(worker);
                return nullptr;
            }
            if (RX_Closure* const closure = _pending.pop()) {
                return closure;
            }
            _idle.push(worker.waiter);
            if (_capacity == 0) {
                _pending.wakeBlockedPut();
            }
        }
        _idle.wait(worker.waiter);
    }
}

/** Registers a worker that is about to start. Returns null if the queue is closed. */
std::unique_ptr<RX_ServerQueue::Implementation::Worker> RX_ServerQueue::Implementation::addWorker()
{
    const Lock locked(*this);
    if (_isClosed) {
        return nullptr;
    }
    IdleWorkers::Waiter& waiter = _idle.addWaiter();
    try {
        auto worker = std::make_unique<Worker>(_queue, _workersAdded, _removals, waiter);
        worker->next = std::exchange(_workers, worker.get());
        ++_workersAdded;
        ++_queue._threadCount;
        return worker;
    } catch (const std::bad_alloc&) {
        _idle.removeWaiter(waiter);
        throw;
    }
}

/** Unregisters a worker that was not started. */
void RX_ServerQueue::Implementation::cancelWorker(Worker& worker)
{
    const Lock locked(*this);
    _idle.removeWaiter(worker.waiter);
    unlink(worker);
    --_queue._threadCount;
    _threadsToStop = std::min(_threadsToStop, _queue._threadCount);
}

/** Begins the calling thread, which runs the worker. */
void RX_ServerQueue::Implementation::enter(Worker& worker)
{
    const Lock locked(*this);
    worker.thread = qv_si_thread_self();
    // With the lock held: otherwise a name that is set afterwards might be replaced.
    _threadName.applyToCaller();
}

/** Removes a worker from the list. */
void RX_ServerQueue::Implementation::unlink(Worker& worker)
{
    Worker** link = &_workers;
    while (*link != &worker) {
        link = &(*link)->next;
    }
    *link = worker.next;
}

/** Unregisters a worker that is about to end. */
void RX_ServerQueue::Implementation::removeWorker(Worker& worker)
{
    _idle.removeWaiter(worker.waiter);
    unlink(worker);
    --_queue._threadCount;
    if (_threadsToStop != 0) {
        --_threadsToStop;
    }
    _pending.setMustCheckState(_isClosed || _threadsToStop != 0);
    // With fewer workers to stop, a queue of capacity 0 may have an idle worker for a blocked producer.
    _pending.wakeBlockedPut();
    // Producers may have counted on this worker.
    if (_pending.size() != 0) {
        _idle.wakeAll();
    }
}

/** Returns true if the worker must end instead of running another closure. */
bool RX_ServerQueue::Implementation::mustStop(const Worker& worker) const
{
    return _isClosed || (_threadsToStop != 0 && worker.removals != _removals);
}

RX_ServerQueue::RX_ServerQueue(unsigned int capacity) : _implementation(new Implementation(*this, capacity))
{
    _construction.complete();
}

RX_ServerQueue::~RX_ServerQueue() noexcept(false)
{
    _implementation->discardAtEnd();
    if (_ar != nullptr) {
        _ar->disconnect(this);
        _ar->detach();
    }
}

void RX_ServerQueue::addThreads(unsigned int count)
{
    _implementation->addThreads(count);
}

void RX_ServerQueue::removeThreads(unsigned int count)
{
    _implementation->removeThreads(count);
}

void RX_ServerQueue::connectActivityRecorder(RX_ActivityRecorder* ar)
{
    const RX_Locked_ locked(*this);
    if (size_nolock() != 0 || _threadCount != 0) {
        throw RX_ExFatal(__LINE__, "qv/rtlapi/src/RX_ServerQueue", QV_RX_CONDITION,
                         "size_nolock() == 0 && _threadCount == 0");
    }
    // The new reference is acquired first: both may be the same recorder.
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
    if (!_implementation->enqueue(closure, Implementation::IfFull::BLOCK)) {
        _implementation->reject(closure);
    }
}

void RX_ServerQueue::putProbe(RX_Closure* const& closure)
{
    if (!_implementation->enqueue(closure, Implementation::IfFull::PROBE)) {
        _implementation->reject(closure);
    }
}

void RX_ServerQueue::putBeyondCapacity(RX_Closure* closure)
{
    if (!_implementation->enqueue(closure, Implementation::IfFull::EXCEED)) {
        _implementation->reject(closure);
    }
}

void RX_ServerQueue::refusePuts()
{
    _implementation->refusePuts();
}

qv_bool_t RX_ServerQueue::tryPut(RX_Closure* const& closure)
{
    return _implementation->enqueue(closure, Implementation::IfFull::FAIL);
}

qv_bool_t RX_ServerQueue::runPending()
{
    return _implementation->runPending();
}

unsigned int RX_ServerQueue::size() const
{
    const RX_Locked_ locked(*this);
    return size_nolock();
}

void RX_ServerQueue::close()
{
    _implementation->discardPending(true);
}

int RX_ServerQueue::isClosed() const
{
    return _implementation->isClosed();
}

// The implementation knows the lock that the caller holds by another name.
DALNIM_NO_LOCK_ANALYSIS unsigned int RX_ServerQueue::size_nolock() const
{
    return _implementation->size();
}

si_uint32_t RX_ServerQueue::threadCount() const
{
    const RX_Locked_ locked(*this);
    return _threadCount;
}

void RX_ServerQueue::flush()
{
    _implementation->discardPending(false);
}

ServerQueueAccess::CurrentWorker ServerQueueAccess::currentWorker() noexcept
{
    return current_worker;
}

std::vector<ServerQueueAccess::BusyWorker> ServerQueueAccess::busyWorkers(const RX_ServerQueue& queue)
{
    return queue._implementation->busyWorkers();
}

void ServerQueueAccess::setThreadName(RX_ServerQueue& queue, const KernelName& name)
{
    queue._implementation->setThreadName(name);
}

unsigned int ServerQueueAccess::close(RX_ServerQueue& queue)
{
    return queue._implementation->discardPending(true);
}
