#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TaskClosure.hpp>

#include <dalnim/mt/src/BlockAllocator.hpp>
#include <dalnim/mt/src/PoolQueue.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>

#include <qv/pmx/src/probes.hpp>

#include <exception>
#include <new>
#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

/**
 * Storage of the exception that has left a task, from its handler until it is reported. Not a local variable,
 * which would be initialised and checked for each task; without a destructor, which would have to be
 * registered for each thread.
 */
struct KeptException
{
    std::exception_ptr* get() noexcept
    {
        return std::launder(reinterpret_cast<std::exception_ptr*>(storage));
    }

    alignas(std::exception_ptr) unsigned char storage[sizeof(std::exception_ptr)];
};

__attribute__((tls_model("initial-exec"))) thread_local KeptException kept_exception;

}

type::ContextSnapshot TaskClosure::duplicate(const type::ContainerContext* context)
{
    if (context == nullptr) {
        context = sys::internal::ThreadState::current().contextRef.get();
    }
    return type::ContextSnapshot(*context);
}

// The context is copied before the base classes are constructed: if copying throws, there is no closure,
// which would report that it is destroyed with a reference.
TaskClosure::TaskClosure(Task* task, bool manage, ThreadPool* pool, const type::ContainerContext* context)
    : TaskClosure(task, manage, pool, duplicate(context))
{
}

TaskClosure::TaskClosure(Task* task, bool manage, ThreadPool* pool, type::ContextSnapshot context)
    : _task(task), _ownership(manage ? acquireOwnership(*task) : Ownership::NONE), _pool(pool),
      _context(std::move(context))
{
}

void TaskClosure::releaseOwnership()
{
    undoOwnership(*_task, std::exchange(_ownership, Ownership::NONE));
}

TaskClosure::~TaskClosure() noexcept(false)
{
    if (_ownership != Ownership::NONE) {
        endOwnership(_task, _ownership, "Unexpected exception while destroying a task of a pool");
    }
}

void* TaskClosure::operator new(std::size_t size) // NOLINT(cert-dcl54-cpp): the sized delete matches
{
    return BlockAllocator::allocate(size);
}

void TaskClosure::operator delete(void* block, std::size_t size) noexcept
{
    BlockAllocator::deallocate(block, size);
}

namespace {

/** The measurement of a pool that collects no statistics. */
struct NoMeasurement
{
    void begin() const noexcept {}
    void end(bool) const noexcept {}
};

}

void TaskClosure::apply()
{
    run(NoMeasurement());
}

/** Makes the context, the task and the pool current on this thread. */
void TaskClosure::begin(sys::internal::ThreadState& thread)
{
    _context.transferTo(*thread.contextRef);
    thread.thrd = nullptr;
    thread.task = _task;
    thread.pool = _pool;
    Task::_last_finished() = nullptr;
}

/** Keeps the current exception for reportException(). Must be called from its handler. */
void TaskClosure::keepException() noexcept
{
    new (kept_exception.storage) std::exception_ptr(std::current_exception());
}

/** Passes the exception that was kept on this thread to the queue of the pool, and discards it. */
void TaskClosure::reportException() const
{
    std::exception_ptr* const kept = kept_exception.get();
    const std::exception_ptr exception(std::move(*kept));
    kept->~exception_ptr();
    // Not through the pool, which may have been destroyed.
    if (PoolQueue* const queue = PoolQueue::current()) {
        // The owner of a task that run() has set to TSF_FINISHED may have destroyed it.
        const bool isAlive = _ownership != Ownership::NONE || Task::_last_finished() != _task;
        queue->handleException(isAlive ? _task : nullptr, exception);
    }
}

}
