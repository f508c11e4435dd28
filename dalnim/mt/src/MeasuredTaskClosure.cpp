#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/MeasuredTaskClosure.hpp>

#include <qv/rtlapi/src/ServerQueueAccess.hpp>

#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

/** Counts one run on a worker. */
class MeasuredTaskClosure::Measurement
{
public:
    Measurement(MeasuredTaskClosure& closure, unsigned int worker) : _closure(closure), _worker(worker) {}

    void begin() const noexcept
    {
        const RX_String& name = _closure.taskName();
        _closure._hasBegun = true;
        _begun = _closure._figures.begin(_worker, _closure._submitted, _closure.taskId(), name.data(),
                                         name.length());
    }
    void end(bool hasThrown) const noexcept
    {
        _closure._figures.end(_worker, _begun, hasThrown);
    }

private:
    MeasuredTaskClosure& _closure;
    const unsigned int _worker;
    mutable UInt64_t _begun = 0;
};

// The context is copied before the virtual base classes are constructed, as for a TaskClosure.
MeasuredTaskClosure::MeasuredTaskClosure(Task* task, bool manage, ThreadPool* pool,
                                         const type::ContainerContext* context, PoolFigures& figures)
    : MeasuredTaskClosure(task, manage, pool, duplicate(context), figures)
{
}

MeasuredTaskClosure::MeasuredTaskClosure(Task* task, bool manage, ThreadPool* pool,
                                         type::ContextSnapshot context, PoolFigures& figures)
    : TaskClosure(task, manage, pool, std::move(context)), _figures(figures), _submitted(PoolFigures::now())
{
    _figures.countSubmitted();
}

MeasuredTaskClosure::~MeasuredTaskClosure() noexcept(false)
{
    if (!_hasBegun) {
        _figures.countDiscarded();
    }
}

void MeasuredTaskClosure::apply()
{
    run(Measurement(*this, qv::ServerQueueAccess::currentWorker().index));
}

}
