#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TaskClosure.hpp>

#include <dalnim/mt/src/ClosureAllocator.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <qv/rtlapi/src/userCode.hpp>

#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

type::ContextSnapshot duplicate(const type::ContainerContext* context)
{
    if (context == nullptr) {
        context = sys::internal::ThreadState::current().contextRef.get();
    }
    return type::ContextSnapshot(*context);
}

}

// The context is copied before the base class is constructed: if copying throws, there is no closure, which
// would report that it is destroyed with a reference.
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

void* TaskClosure::operator new(std::size_t size)
{
    static_assert(sizeof(TaskClosure) <= ClosureAllocator::BLOCK_SIZE, "BLOCK_SIZE is too small");
    static_cast<void>(size);
    return ClosureAllocator::allocate();
}

void TaskClosure::operator delete(void* block) noexcept
{
    ClosureAllocator::deallocate(block);
}

void TaskClosure::apply()
{
    sys::internal::ThreadState& thread = sys::internal::ThreadState::current();
    _context.transferTo(*thread.contextRef);
    thread.thrd = nullptr;
    thread.task = _task;
    thread.pool = _pool;
    Task::_last_finished() = nullptr;
    _task->_set_state(Task::TSF_RUNNING);
    try {
        _task->run();
    } catch (...) {
        // Discarded deliberately: a pool task reports its outcome itself.
        if (qv::isThreadEnding()) {
            finish(thread);
            throw;
        }
    }
    finish(thread);
}

/** Sets the state, and clears the context, the task and the pool of this thread. */
void TaskClosure::finish(sys::internal::ThreadState& thread) const
{
    // Its owner may have destroyed a task that run() has set to TSF_FINISHED.
    if (Task::_last_finished() != _task) {
        _task->_set_state(Task::TSF_FINISHED);
    }
    thread.contextRef->clearContent();
    thread.thrd = nullptr;
    thread.task = nullptr;
    thread.pool = nullptr;
}

}
