#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/CurrentContext.hpp>

#include <memory>

namespace com::kor::dal::nim::sys::internal {

CurrentContext::CurrentContext() = default;
CurrentContext::CurrentContext(const type::ContainerContext& ref)
    : type::Object(ref), mem::RefCntObject(ref), type::ContainerContext(ref)
{
}
CurrentContext::CurrentContext(const CurrentContext& ref)
    : CurrentContext(static_cast<const type::ContainerContext&>(ref))
{
}
CurrentContext& CurrentContext::operator=(const CurrentContext& ref) = default;
CurrentContext& CurrentContext::operator=(const type::ContainerContext& ref)
{
    type::ContainerContext::operator=(ref);
    return *this;
}
CurrentContext::~CurrentContext() noexcept(false) {}

UInt32_t CurrentContext::key() const
{
    return 0;
}

// ThreadState is in a lower layer than the contexts and only declares this class. These two of its operations
// are defined here, where the class is complete.

CurrentContextRef& ThreadState::createContext()
{
    const CurrentContextRef context(new CurrentContext);
    return *std::make_unique<CurrentContextRef>(context).release();
}

void ThreadState::destroyContext(CurrentContextRef& context) noexcept
{
    const std::unique_ptr<CurrentContextRef> owner(&context);
}

}
