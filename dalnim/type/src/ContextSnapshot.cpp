#include <dalnim/dalbase.hpp>

#include <dalnim/type/src/ContextSnapshot.hpp>

#include <dalnim/type/ContainerContext.hpp>
#include <dalnim/type/src/ContextCounters.hpp>
#include <dalnim/type/src/SharedEntries.hpp>
#include <qv/pmx/src/perturb.hpp>

#include <utility>

namespace com::kor::dal::nim::type {

ContextSnapshot::ContextSnapshot(const ContainerContext& source) : shared(source.snapshot())
{
    ContextCounters::count(&ContextCounters::Stripe::duplicated);
}

ContextSnapshot::~ContextSnapshot() = default;

void ContextSnapshot::transferTo(ContainerContext& target) noexcept
{
    ContextCounters::count(&ContextCounters::Stripe::attached);
    if (shared == nullptr) {
        target.clearContent();
    } else if (shared->list()->isShareable()) {
        target.adopt(SharedEntries(shared->list()));
        qv::perturb();
        // Destroys no entry: the target references them.
        shared.reset();
    } else {
        target.adopt(std::move(*shared));
        shared.reset();
    }
}

}
