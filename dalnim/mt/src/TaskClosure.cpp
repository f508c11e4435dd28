#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TaskClosure.hpp>

#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

type::ContainerContextRef duplicate(const type::ContainerContext* context)
{
    if (context == nullptr) {
        context = sys::internal::ThreadState::current().contextRef.get();
    }
    return type::ContainerContextRef(new sys::internal::CurrentContext(*context));
}

}

// The context comes first: a copy that fails must not leave half a closure, which is counted.
TaskClosure::TaskClosure(Task* task, bool manage, ThreadPool* pool, const type::ContainerContext* context)
    : TaskClosure(task, manage, pool, duplicate(context))
{
}

TaskClosure::TaskClosure(Task* task, bool manage, ThreadPool* pool, type::ContainerContextRef context)
    : _task(task), _manage(manage), _pool(pool), _contextRef(std::move(context))
{
    if (manage) {
        if (const auto* const counted = dynamic_cast<const mem::RefCntObject*>(task)) {
            counted->acquireRef();
        }
    }
}

void TaskClosure::disown()
{
    if (_manage) {
        _manage = false;
        if (const auto* const counted = dynamic_cast<const mem::RefCntObject*>(_task)) {
            counted->releaseRef();
        }
    }
}

TaskClosure::~TaskClosure() noexcept(false)
{
    if (!_manage) {
        return;
    }
    if (const auto* const counted = dynamic_cast<const mem::RefCntObject*>(_task)) {
        counted->releaseRef();
    } else {
        delete _task;
        _task = nullptr;
    }
}

void TaskClosure::apply()
{
    sys::internal::ThreadState& thread = sys::internal::ThreadState::current();
    thread.contextRef->swap(*_contextRef);
    _contextRef->clearContent();
    thread.thrd = nullptr;
    thread.task = _task;
    thread.pool = _pool;
    Task::_last_finished() = nullptr;
    _task->_set_state(Task::TSF_RUNNING);
    try {
        _task->run();
    } catch (...) {
        // Dropped on purpose: a pool task tells its outcome by its own means.
    }
    // A task that has finished itself may be gone: its owner waits for nothing else.
    if (Task::_last_finished() != _task) {
        _task->_set_state(Task::TSF_FINISHED);
    }
    thread.contextRef->clearContent();
    thread.thrd = nullptr;
    thread.task = nullptr;
    thread.pool = nullptr;
}

}
