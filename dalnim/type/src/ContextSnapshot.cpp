#include <dalnim/dalbase.hpp>

#include <dalnim/type/src/ContextSnapshot.hpp>

#include <dalnim/type/ContainerContext.hpp>
#include <dalnim/type/src/SharedEntries.hpp>
#include <qv/pmx/src/perturb.hpp>

namespace com::kor::dal::nim::type {

ContextSnapshot::ContextSnapshot(const ContainerContext& source) : shared(source.snapshot()) {}

ContextSnapshot::~ContextSnapshot() = default;

void ContextSnapshot::giveTo(ContainerContext& target) noexcept
{
    if (shared == nullptr) {
        target.clearContent();
        return;
    }
    target.adopt(shared->list());
    qv::perturb();
    shared.reset();
}

}
