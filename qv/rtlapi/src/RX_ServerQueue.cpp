#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <algorithm>
#include <utility>

#include <qv/pmx/errors.h>
#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/src/detached.hpp>

/**
 * A closure on its way from the queue: when the job goes, the closure is released, and then the
 * recorder is told; so whoever waits for quiet finds everything gone that was run.
 */
class RX_ServerQueue::Job
{
public:
    Job() = default;
    /** Takes over the reference to the closure. */
    Job(RX_Closure* closure, RX_ActivityRecorder* recorder) noexcept
        : _recorder(qv::share(recorder)), _closure(closure)
    {
    }
    Job(Job&&) = default;
    Job& operator=(Job&&) = delete;
    ~Job()
    {
        if (_closure) {
            _closure.reset();
            if (_recorder) {
                _recorder->dec();
            }
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
    qv::Reference<RX_ActivityRecorder> _recorder;
    qv::Reference<RX_Closure> _closure;
};

/** What a worker thread has of the queue, for as long as it runs, however it ends. */
class RX_ServerQueue::Worker
{
public:
    /** Takes over a reference to the queue, which has counted the worker in. */
    explicit Worker(RX_ServerQueue* queue) noexcept
        : _queue(queue)
    {
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker()
    {
        if (_isCounted) {
            const RX_Locked_ locked(*_queue);
            _queue->countOut();
        }
    }

    void run()
    {
        while (const Job job = _queue->awaitJob()) {
            qv::applyDetached(job.closure());
        }
        _isCounted = false;
    }

private:
    const qv::Reference<RX_ServerQueue> _queue;
    bool _isCounted = true;
};

RX_ServerQueue::RX_ServerQueue(unsigned int capacity)
    : _capacity(capacity), _work(*this), _room(*this)
{
}

RX_ServerQueue::~RX_ServerQueue() noexcept(false)
{
    // Workers have references, so there is none; nobody else is here either.
    drop(_pending, _ar);
    if (_ar != nullptr) {
        _ar->disconnect(this);
        _ar->detach();
    }
}

void RX_ServerQueue::addThreads(unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        {
            const RX_Locked_ locked(*this);
            if (_closed) {
                return;
            }
            ++_threadCount;
        }
        qv::Reference<RX_ServerQueue> self = qv::share(this);
        if (const int status = qv::startDetached(&RX_ServerQueue::runWorker, this)) {
            const RX_Locked_ locked(*this);
            --_threadCount;
            _leaving = std::min(_leaving, _threadCount);
            throw RX_ExFatal(status);
        }
        // The worker has it now.
        static_cast<void>(self.release());
    }
}

void RX_ServerQueue::removeThreads(unsigned int count)
{
    const RX_Locked_ locked(*this);
    const si_uint32_t removed = std::min(count, _threadCount - _leaving);
    if (removed == 0) {
        return;
    }
    _leaving += removed;
    _wasReduced = true;
    _work.broadcast();
    _room.broadcast();
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
    {
        const RX_Locked_ locked(*this);
        while (isServed() && !hasRoom()) {
            _room.wait();
        }
        if (isServed()) {
            append(closure);
            return;
        }
    }
    refuse(closure);
}

void RX_ServerQueue::putProbe(RX_Closure* const& closure)
{
    {
        const RX_Locked_ locked(*this);
        if (isServed()) {
            append(closure);
            return;
        }
    }
    refuse(closure);
}

qv_bool_t RX_ServerQueue::tryPut(RX_Closure* const& closure)
{
    const RX_Locked_ locked(*this);
    if (!isServed() || !hasRoom()) {
        return 0;
    }
    append(closure);
    return 1;
}

qv_bool_t RX_ServerQueue::runPending()
{
    const Job job = [this] {
        const RX_Locked_ locked(*this);
        return take();
    }();
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
    return static_cast<unsigned int>(_pending.size());
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

void* RX_ServerQueue::runWorker(void* queue)
{
    Worker(static_cast<RX_ServerQueue*>(queue)).run();
    return nullptr;
}

/** Whether all threads were removed: none is to stay. A queue that has yet to get some is not retired. */
bool RX_ServerQueue::isRetired() const
{
    return _wasReduced && _leaving == _threadCount;
}

/** Whether what is put now is going to be run. */
bool RX_ServerQueue::isServed() const
{
    return !_closed && !isRetired();
}

bool RX_ServerQueue::hasRoom() const
{
    if (_capacity != 0) {
        return _pending.size() < _capacity;
    }
    // Handed over directly: there must be an idle worker for each, which is not about to leave.
    return _pending.size() + _leaving < _idle;
}

void RX_ServerQueue::append(RX_Closure* closure)
{
    _pending.push_back(closure);
    if (_ar != nullptr) {
        _ar->inc();
    }
    _work.signal();
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
    Closures dropped;
    qv::Reference<RX_ActivityRecorder> recorder;
    {
        const RX_Locked_ locked(*this);
        _closed = _closed || closing;
        dropped.swap(_pending);
        recorder = qv::share(_ar);
        _room.broadcast();
        if (_closed) {
            _work.broadcast();
        }
    }
    drop(dropped, recorder.get());
}

void RX_ServerQueue::drop(Closures& closures, RX_ActivityRecorder* recorder)
{
    for (; !closures.empty(); closures.pop_front()) {
        const Job dropped(closures.front(), recorder);
    }
}

/** The oldest pending closure; no job when there is none. The caller holds the lock. */
RX_ServerQueue::Job RX_ServerQueue::take()
{
    if (_pending.empty()) {
        return Job();
    }
    RX_Closure* const closure = _pending.front();
    _pending.pop_front();
    _room.signal();
    return Job(closure, _ar);
}

/** Waits, on a worker, for a job. No job means that the worker has been counted out and is to end. */
RX_ServerQueue::Job RX_ServerQueue::awaitJob()
{
    const RX_Locked_ locked(*this);
    for (;;) {
        const bool mayLeave = _closed || (_leaving != 0 && (_pending.empty() || !isRetired()));
        if (mayLeave) {
            countOut();
            return Job();
        }
        if (!_pending.empty()) {
            return take();
        }
        ++_idle;
        if (_capacity == 0) {
            _room.signal();
        }
        _work.wait();
        --_idle;
    }
}

/** One worker less: it is about to end. */
void RX_ServerQueue::countOut()
{
    --_threadCount;
    if (_leaving != 0) {
        --_leaving;
    }
    // Without those who leave there may be room for a closure that is handed over.
    _room.signal();
}
