#ifndef DALNIM_MT_SRC_TASKCLOSURE_HPP
#define DALNIM_MT_SRC_TASKCLOSURE_HPP

#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/src/Ownership.hpp>
#include <dalnim/type/ContainerContext.hpp>
#include <dalnim/type/src/ContextSnapshot.hpp>
#include <qv/rtlapi/RX_Closure.hpp>

#include <cstddef>

namespace com::kor::dal::nim::sys::internal {
class ThreadState;
}

namespace com::kor::dal::nim::mt {

class ThreadPool;

/** A task on its way through a pool's queue, with a copy of its submitter's context. */
class TaskClosure : public RX_Closure
{
public:
    /** Copies `context` or, for null, the calling thread's current one. */
    TaskClosure(Task* task, bool manage, ThreadPool* pool, const type::ContainerContext* context);
    /**
     * Releases a managed task that is counted, deletes one that is not. An exception of the task's destructor
     * is logged; only a forced unwinding passes.
     */
    ~TaskClosure() noexcept(false) override;

    TaskClosure(TaskClosure&) = delete;
    TaskClosure& operator=(TaskClosure&) = delete;

    // One of them goes with each submission, from one thread to another.
    static void* operator new(std::size_t size);
    static void operator delete(void* block) noexcept;

    /**
     * Runs the task on a worker; what it throws is dropped. A task that ends the thread is finished, too, and
     * the unwinding goes on.
     */
    void apply() override;

    /** Returns a managed task to the caller of ThreadPool::add(), without destroying it. */
    void releaseOwnership();

private:
    TaskClosure(Task* task, bool manage, ThreadPool* pool, type::ContextSnapshot context);

    void finish(sys::internal::ThreadState& thread) const;

    Task* _task;
    Ownership _ownership;
    ThreadPool* const _pool;
    type::ContextSnapshot _context;
};

}

#endif
