#include <dalnim/dalbase.hpp>

#include <dalnim/type/src/ContextSnapshot.hpp>

#include <dalnim/type/ContainerContext.hpp>
#include <dalnim/type/src/SharedContent.hpp>

#include <utility>

namespace com::kor::dal::nim::type {

ContextSnapshot::ContextSnapshot(const ContainerContext& source) : content(source.shareContent()) {}

ContextSnapshot::~ContextSnapshot()
{
    if (content != nullptr) {
        content->drop();
    }
}

void ContextSnapshot::giveTo(ContainerContext& heir) noexcept
{
    heir.inherit(std::move(*this));
}

}
