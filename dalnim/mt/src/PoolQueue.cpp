#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/PoolQueue.hpp>

#include <qv/pmx/src/perturb.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/src/KernelName.hpp>
#include <qv/rtlapi/src/ServerQueueAccess.hpp>
#include <qv/rtlapi/src/userCode.hpp>

#include <utility>
#include <vector>

namespace com::kor::dal::nim::mt {

namespace {

constexpr UInt64_t NANOSECONDS_PER_MILLISECOND = 1000000;

}

PoolQueue::PoolQueue(unsigned int capacity, unsigned int workers)
    : RX_ServerQueue(capacity), _workers(workers)
{
    _construction.complete();
}

PoolQueue::~PoolQueue() noexcept(false) = default;

PoolQueue* PoolQueue::current() noexcept
{
    return dynamic_cast<PoolQueue*>(qv::ServerQueueAccess::currentWorker().queue);
}

void PoolQueue::setExceptionHandler(ThreadPool::ExceptionHandler handler)
{
    std::shared_ptr<const Handler> replaced;
    if (handler) {
        replaced = std::make_shared<const Handler>(Handler{std::move(handler)});
    }
    // The old handler is destroyed after the lock has been released: its destructor is user code.
    const RX_Locked_ locked(*this);
    _exceptionHandler.swap(replaced);
}

void PoolQueue::handleException(const Task* task, const std::exception_ptr& exception)
{
    // Released to exceptionCount(): a caller that finds the exception counted finds what the task did before.
    _exceptionCount.fetch_add(1, std::memory_order_release);
    std::shared_ptr<const Handler> handler;
    {
        const RX_Locked_ locked(*this);
        handler = _exceptionHandler;
    }
    qv::perturb();
    if (!handler) {
        return;
    }
    const qv::CaughtException caught = qv::catchException([&] { std::rethrow_exception(exception); });
    static_cast<void>(qv::catchException([&] { handler->function(task, caught.known(), exception); }));
}

void PoolQueue::collectFigures()
{
    auto created = std::make_unique<PoolFigures>(_workers);
    const RX_Locked_ locked(*this);
    if (!_ownFigures) {
        _ownFigures = std::move(created);
        // Released to figures(), which acquires the counters without the lock.
        _figures.store(_ownFigures.get(), std::memory_order_release);
    }
}

RunningTasks PoolQueue::runningTasks() const
{
    const PoolFigures* const counters = figures();
    const std::vector<qv::ServerQueueAccess::BusyWorker> busy = qv::ServerQueueAccess::busyWorkers(*this);
    RunningTasks tasks;
    tasks.reserve(busy.size());
    for (const qv::ServerQueueAccess::BusyWorker& worker : busy) {
        RunningTask task;
        task.thread = worker.thread;
        task.threadName = qv::KernelName::of(worker.thread).data();
        if (counters != nullptr) {
            const PoolFigures::Running running = counters->running(worker.index);
            task.task = running.task;
            task.name = running.name;
            task.milliseconds = running.nanoseconds / NANOSECONDS_PER_MILLISECOND;
        }
        tasks.push_back(std::move(task));
    }
    return tasks;
}

}
