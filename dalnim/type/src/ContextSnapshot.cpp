#include <dalnim/dalbase.hpp>

#include <dalnim/type/src/ContextSnapshot.hpp>

#include <dalnim/type/ContainerContext.hpp>
#include <dalnim/type/src/SharedEntries.hpp>
#include <qv/pmx/src/CancellationOff.hpp>
#include <qv/pmx/src/perturb.hpp>

namespace com::kor::dal::nim::type {

ContextSnapshot::ContextSnapshot(const ContainerContext& source) : shared(source.snapshot()) {}

ContextSnapshot::~ContextSnapshot()
{
    if (shared != nullptr) {
        // Dropped without being adopted, which may be the end of entries. Cancelled in the destructor of one,
        // the thread would end the process.
        const qv::CancellationOff cancellationOff;
        shared.reset();
    }
}

void ContextSnapshot::giveTo(ContainerContext& target) noexcept
{
    if (shared == nullptr) {
        target.clearContent();
        return;
    }
    target.adopt(shared->list());
    qv::perturb();
    // Ends no entry: the target holds them.
    shared.reset();
}

}
