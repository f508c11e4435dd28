#ifndef DALNIM_MT_SRC_MEASUREDTASKCLOSURE_HPP
#define DALNIM_MT_SRC_MEASUREDTASKCLOSURE_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/mt/src/PoolFigures.hpp>
#include <dalnim/mt/src/TaskClosure.hpp>

namespace com::kor::dal::nim::mt {

/** A task in the queue of a pool that collects statistics. */
class MeasuredTaskClosure : public TaskClosure
{
public:
    /**
     * Counts the task as submitted.
     * @param figures  the counters of the pool, which outlive the closure
     */
    MeasuredTaskClosure(Task* task, bool manage, ThreadPool* pool, const type::ContainerContext* context,
                        PoolFigures& figures);
    /** Counts a task that was not run as discarded. */
    ~MeasuredTaskClosure() noexcept(false) override;

    void apply() override;

private:
    class Measurement;

    MeasuredTaskClosure(Task* task, bool manage, ThreadPool* pool, type::ContextSnapshot context,
                        PoolFigures& figures);

    PoolFigures& _figures;
    /** Time at which the task was queued, on the clock of PoolFigures. */
    const UInt64_t _submitted;
    bool _hasBegun = false;
};

}

#endif
