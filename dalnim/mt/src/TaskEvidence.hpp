#ifndef DALNIM_MT_SRC_TASKEVIDENCE_HPP
#define DALNIM_MT_SRC_TASKEVIDENCE_HPP

namespace com::kor::dal::nim::sys::internal {
class ThreadState;
struct ThreadAnswer;
}

namespace com::kor::dal::nim::mt {

/**
 * Describes what the calling thread works on, in a signal handler, for reports of threads and crashes. The
 * task or the pool may have been destroyed, and the context may be changing: all memory is read through
 * SafeMemory, and in such a moment a part of the description may be missing.
 */
class TaskEvidence
{
public:
    TaskEvidence() = delete;

    /** Fills in task, pool and the type of the security token. */
    static void describe(sys::internal::ThreadAnswer& answer,
                         const sys::internal::ThreadState& thread) noexcept;

private:
    static void describeTask(sys::internal::ThreadAnswer& answer, const void* task) noexcept;
    static void describePool(sys::internal::ThreadAnswer& answer, const void* pool) noexcept;
    static const void* securityContext(const sys::internal::ThreadState& thread) noexcept;
};

}

#endif
