#ifndef DALNIM_MT_SRC_TASKCLOSURE_HPP
#define DALNIM_MT_SRC_TASKCLOSURE_HPP

#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/src/Ownership.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/ContainerContext.hpp>
#include <dalnim/type/src/ContextSnapshot.hpp>
#include <qv/pmx/src/probes.hpp>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/src/userCode.hpp>

#include <cstddef>

namespace com::kor::dal::nim::mt {

class ThreadPool;

/** A task in the queue of a pool, with a copy of the context of the thread that added it. */
class TaskClosure : public RX_Closure
{
public:
    /** Copies `context` or, if null, the calling thread's current one. */
    TaskClosure(Task* task, bool manage, ThreadPool* pool, const type::ContainerContext* context);
    /**
     * Releases a managed task if it is reference-counted, otherwise deletes it. An exception of the task's
     * destructor is logged; a forced unwinding continues.
     */
    ~TaskClosure() noexcept(false) override;

    TaskClosure(TaskClosure&) = delete;
    TaskClosure& operator=(TaskClosure&) = delete;

    // One closure is allocated by each add(), and deallocated by another thread: see BlockAllocator.
    static void* operator new(std::size_t size); // NOLINT(cert-dcl54-cpp): the sized delete matches
    static void operator delete(void* block, std::size_t size) noexcept;

    /**
     * Runs the task on a worker and discards its exception, after PoolQueue::handleException(). If the task
     * or the handler ends the thread, the task is finished as well, and the unwinding continues. If the
     * worker has no ThreadState and none can be created, the task is finished without running, and that
     * exception is handled like its own.
     */
    void apply() override;

    /** Returns a managed task to the caller of ThreadPool::add(), without destroying it. */
    void releaseOwnership();

protected:
    /** Takes over a duplicate of a context. */
    TaskClosure(Task* task, bool manage, ThreadPool* pool, type::ContextSnapshot context);

    /** Returns a duplicate of `context` or, if null, of the calling thread's current one. */
    static type::ContextSnapshot duplicate(const type::ContainerContext* context);

    /**
     * Runs the task like apply(). Calls `measurement.begin()` before the task becomes TSF_RUNNING, and
     * `measurement.end(hasThrown)` before it becomes TSF_FINISHED, also if it ends its thread.
     */
    template <class Measurement>
    void run(const Measurement& measurement);

    TaskID_t taskId() const noexcept
    {
        return _task->taskId();
    }
    /** Returns the name of the task, which is valid until the task is finished. */
    const RX_String& taskName() const noexcept
    {
        return _task->_name;
    }

private:
    template <class Measurement>
    __attribute__((noinline, cold)) void failWithoutState(const Measurement& measurement);
    static void keepException() noexcept;
    __attribute__((noinline, cold)) void reportException() const;
    void begin(sys::internal::ThreadState& thread);
    void finish(sys::internal::ThreadState& thread) const;

    Task* _task;
    /** How the pool owns `_task`. */
    Ownership _ownership;
    /** The pool that queued the task; not owned. */
    ThreadPool* const _pool;
    /** The copied context. */
    type::ContextSnapshot _context;
};

/**
 * Sets the state, and clears the context, the task and the pool of this thread. Inline, since each task
 * calls it.
 */
__attribute__((always_inline)) inline void TaskClosure::finish(sys::internal::ThreadState& thread) const
{
    QV_PROBE_TASK_ENDED(_task, _pool);
    // Its owner may have destroyed a task that run() has set to TSF_FINISHED.
    if (Task::_last_finished() != _task) {
        _task->_set_state(Task::TSF_FINISHED);
    }
    thread.contextRef->clearContent();
    thread.thrd = nullptr;
    thread.task = nullptr;
    thread.pool = nullptr;
}

template <class Measurement>
void TaskClosure::run(const Measurement& measurement)
{
    sys::internal::ThreadState* state = nullptr;
    try {
        state = &sys::internal::ThreadState::current();
    } catch (...) {
        // There is no memory for it, on a worker that runs its first task.
        keepException();
    }
    if (state == nullptr) {
        failWithoutState(measurement);
        return;
    }
    sys::internal::ThreadState& thread = *state;
    begin(thread);
    measurement.begin();
    _task->_set_state(Task::TSF_RUNNING);
    QV_PROBE_TASK_BEGUN(_task, _pool);
    bool hasThrown = false;
    try {
        _task->run();
    } catch (...) {
        if (qv::isThreadEnding()) {
            measurement.end(false);
            finish(thread);
            throw;
        }
        // Reported outside of this handler: see qv::catchException().
        keepException();
        hasThrown = true;
    }
    if (hasThrown) {
        try {
            reportException();
        } catch (...) {
            // The handler of the pool has ended the thread.
            measurement.end(true);
            finish(thread);
            throw;
        }
    }
    measurement.end(hasThrown);
    finish(thread);
}

/** Finishes the task without running it, and reports the exception that was kept. */
template <class Measurement>
void TaskClosure::failWithoutState(const Measurement& measurement)
{
    Task::_last_finished() = nullptr;
    measurement.begin();
    try {
        reportException();
    } catch (...) {
        // The handler of the pool has ended the thread.
        measurement.end(true);
        _task->_set_state(Task::TSF_FINISHED);
        throw;
    }
    measurement.end(true);
    _task->_set_state(Task::TSF_FINISHED);
}

}

#endif
