#include <dalnim/dalbase.hpp>

#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/mt/src/MeasuredTaskClosure.hpp>
#include <dalnim/mt/src/PoolQueue.hpp>
#include <dalnim/mt/src/TaskClosure.hpp>
#include <dalnim/mt/src/TaskName.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/ThreadReport.hpp>
#include <dalnim/sys/UniqueID.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <qv/pmx/host.h>
#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/probes.hpp>
#include <qv/pmx/time.h>
#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_Closure0S.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>
#include <qv/rtlapi/RX_ServerQueue.hpp>
#include <qv/rtlapi/Reference.hpp>
#include <qv/rtlapi/src/KernelName.hpp>
#include <qv/rtlapi/src/ServerQueueAccess.hpp>

#include <new>
#include <stdexcept>
#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

void countRefused(PoolFigures* figures)
{
    if (figures != nullptr) {
        figures->countRefused();
    }
}

/** Adds the tracks and, if they are not known, the names of the tasks, if sys::ThreadReport is installed. */
void addTracks(RunningTasks& tasks, TaskID_t pool)
{
    if (tasks.empty() || sys::ThreadReport::realTimeSignal() == 0) {
        return;
    }
    const sys::ThreadReport report;
    for (RunningTask& task : tasks) {
        for (const sys::ThreadReport::Entry& entry : report.threads()) {
            if (entry.tid != task.thread || !entry.hasPool || entry.poolId != pool) {
                continue;
            }
            task.tracks = entry.tracks;
            if (task.task == 0) {
                task.task = entry.taskId;
                task.name = entry.taskName;
            }
        }
    }
}

}

ThreadPool::ThreadPool(const char* name, unsigned int max_threads, unsigned int, unsigned int, unsigned int,
                       unsigned int, unsigned int max_pending_tasks)
    : _id(sys::UniqueID::nextUid32()), _process(qv_si_getpid()), _name(_make_tp_name(name, _id)),
      _queue(nullptr), _ar(nullptr), _max_pending_tasks(max_pending_tasks), isPoolClosed(false)
{
    const sys::StackTrack track("ThreadPool()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    qv::Reference<RX_ServerQueue> queue(new PoolQueue(max_pending_tasks, max_threads));
    qv::Reference<RX_ActivityRecorder> recorder(new RX_ActivityRecorder);
    queue->connectActivityRecorder(recorder.get());
    try {
        queue->addThreads(max_threads);
    } catch (...) {
        // Otherwise workers that have started would keep the queue alive forever.
        queue->close();
        throw;
    }
    _queue = queue.release();
    _ar = recorder.release();
}

ThreadPool::~ThreadPool() noexcept(false)
{
    if (!hasWorkers()) {
        return;
    }
    const qv::Reference<RX_ServerQueue> queue(_queue);
    const qv::Reference<RX_ActivityRecorder> recorder(_ar);
    try {
        shutdown(false, false);
    } catch (const std::bad_alloc&) {
        // There is no memory for a StackTrack. The workers are not waited for then.
        queue->close();
    } catch (...) {
        // For example if the thread is cancelled while it waits. Idle workers would keep an open queue alive.
        queue->close();
        poolQueue().setExceptionHandler(nullptr);
        throw;
    }
    poolQueue().setExceptionHandler(nullptr);
}

bool ThreadPool::add(Task* task, bool manage, bool block, const type::ContainerContext* context)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (task == nullptr) {
        throw std::logic_error("Attempt to add a NULL Task");
    }
    if (task->status() != Task::TSF_READY) {
        throw std::logic_error("Attempt to add a non-ready Task");
    }
    PoolFigures* const figures = poolQueue().figures();
    // Only shutdown() closes the queue, after it has set this.
    if (isPoolClosed) {
        countRefused(figures);
        throw std::logic_error("ThreadPool already shutdown");
    }
    if (!block && isFull()) {
        countRefused(figures);
        return false;
    }
    task->_set_state(Task::TSF_QUEUED);
    qv::Reference<TaskClosure> closure(figures == nullptr
                                           ? new TaskClosure(task, manage, this, context)
                                           : new MeasuredTaskClosure(task, manage, this, context, *figures));
    qv::perturb();
    // Before the task is queued: a worker may have run it when put() returns.
    QV_PROBE_TASK_QUEUED(task, this, _name.c_str());
    try {
        if (block) {
            _queue->put(closure.get());
        } else {
            // Other threads may have filled the queue since isFull(). This call must not wait.
            qv::ServerQueueAccess::putBeyondCapacity(*_queue, closure.get());
        }
    } catch (...) {
        // The task remains the caller's, as after every failure of this operation.
        closure->releaseOwnership();
        throw;
    }
    // The queue now owns the only reference, so that a managed task is released after its run.
    static_cast<void>(closure.release());
    return true;
}

bool ThreadPool::add(Task& task, bool block, const type::ContainerContext* context)
{
    return add(&task, false, block, context);
}

bool ThreadPool::isFull() const
{
    // The backlog includes running tasks. This is a snapshot: threads that add concurrently may exceed the
    // limit by their number.
    const UInt32_t backlog = _ar->getBacklog();
    const UInt32_t workers = _queue->threadCount();
    return _max_pending_tasks <= (backlog > workers ? backlog - workers : 0);
}

/** Returns false in the child of a fork, where any lock may be held by a thread of the parent. */
bool ThreadPool::hasWorkers() const
{
    return qv_si_getpid() == _process;
}

void ThreadPool::shutdown(bool synchronous, bool)
{
    const sys::StackTrack track("shutdown()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    isPoolClosed = true;
    if (!hasWorkers() || _queue->isClosed() != 0) {
        return;
    }
    // The queue then discards the closure of an add() that has not seen the flag or is blocked.
    qv::ServerQueueAccess::refusePuts(*_queue);
    if (synchronous) {
        _ar->waitForQuiet();
    }
    _queue->flush();
    if (probe()) {
        _queue->removeThreads(_queue->threadCount());
        _ar->waitForQuiet();
    }
    _queue->close();
}

UnfinishedTasks ThreadPool::shutdownWithin(unsigned int ms, Queued queued)
{
    const sys::StackTrack track("shutdownWithin()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const RX_AbsTime deadline(RX_RelTime(static_cast<int>(ms / 1000), static_cast<int>(ms % 1000) * 1000000));
    UnfinishedTasks unfinished;
    isPoolClosed = true;
    if (!hasWorkers()) {
        return unfinished;
    }
    qv::ServerQueueAccess::refusePuts(*_queue);
    if (queued == Queued::FINISH) {
        _ar->waitForQuiet(deadline);
    }
    unfinished.discarded = qv::ServerQueueAccess::close(*_queue);
    if (_ar->waitForQuiet(deadline) == 0) {
        unfinished.running = remainingTasks();
        addTracks(unfinished.running, _id);
    }
    return unfinished;
}

/** Returns the running tasks of a pool that has been closed, without the workers that are just ending. */
RunningTasks ThreadPool::remainingTasks() const
{
    constexpr int ATTEMPTS = 100;
    const si_timespec_t interval = {0, 1000000};
    for (int i = 0;; ++i) {
        const UInt32_t backlog = _ar->getBacklog();
        if (backlog == 0) {
            return RunningTasks();
        }
        RunningTasks tasks = poolQueue().runningTasks();
        if (tasks.size() <= backlog || i == ATTEMPTS) {
            return tasks;
        }
        qv_si_nanosleep(&interval, nullptr);
    }
}

RunningTasks ThreadPool::runningTasks(bool withTracks) const
{
    const sys::StackTrack track("runningTasks()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!hasWorkers()) {
        return RunningTasks();
    }
    RunningTasks tasks = poolQueue().runningTasks();
    if (withTracks) {
        addTracks(tasks, _id);
    }
    return tasks;
}

/** Returns true if a worker becomes idle within one second, false also if memory runs out. */
bool ThreadPool::probe()
{
    try {
        qv::Reference<RX_Closure0S> closure(new RX_Closure0S(activeThreadsFunction));
        qv::Reference<RX_Closure> queued = qv::share<RX_Closure>(closure.get());
        _queue->putProbe(queued.get());
        static_cast<void>(queued.release());
        closure->waitForCompletion(RX_RelTime(1, 0));
        return true;
    } catch (const RX_Exception&) {
        return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void ThreadPool::setExceptionHandler(ExceptionHandler handler)
{
    if (hasWorkers()) {
        poolQueue().setExceptionHandler(std::move(handler));
    }
}

UInt64_t ThreadPool::exceptionCount() const noexcept
{
    return poolQueue().exceptionCount();
}

void ThreadPool::setKernelNames()
{
    const sys::StackTrack track("setKernelNames()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (hasWorkers()) {
        qv::ServerQueueAccess::setThreadName(*_queue, qv::KernelName(_name.c_str()));
    }
}

void ThreadPool::collectStatistics()
{
    const sys::StackTrack track("collectStatistics()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (hasWorkers()) {
        poolQueue().collectFigures();
    }
}

PoolStatistics ThreadPool::statistics() const
{
    PoolStatistics statistics;
    statistics.name = _name;
    statistics.id = _id;
    statistics.workers = poolQueue().workers();
    if (const PoolFigures* const figures = poolQueue().figures()) {
        statistics.isCollecting = true;
        figures->read(statistics);
    }
    return statistics;
}

/** Returns the queue by its own type. */
PoolQueue& ThreadPool::poolQueue() const noexcept
{
    return static_cast<PoolQueue&>(*_queue);
}

ThreadPool* ThreadPool::currentPool()
{
    return sys::internal::ThreadState::current().pool;
}

String ThreadPool::_make_tp_name(const char* name, TaskID_t id) const
{
    const RX_String text = makeTaskName(name, CLASS_NAME, id);
    return String(text.data(), text.length());
}

void activeThreadsFunction() {}

}
