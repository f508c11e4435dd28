#include <dalnim/dalbase.hpp>

#include <dalnim/type/SecurityContext.hpp>

#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/type/nsdefs.hpp>

#include <stdexcept>

namespace com::kor::dal::nim::type {

// Does not throw: 1 is a valid attribute.
// NOLINTNEXTLINE(cert-err58-cpp)
const UInt32_t SecurityContext::KEY = Context::allocateKey(1);

SecurityContext::SecurityContext() = default;
SecurityContext::~SecurityContext() noexcept(false) {}

void SecurityContext::token(const ConstSecurityTokenRef& ref)
{
    const sys::StackTrack track("token()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!tok_ref) {
        tok_ref = ref;
        return;
    }
    // Unlike a system_error, a logic_error has no trace of its own.
    throw std::logic_error("Attempt to replace SecurityToken at:\n" + sys::StackTrace().toString());
}

UInt32_t SecurityContext::key() const
{
    return KEY;
}

SecurityContextRef SecurityContext::current()
{
    const sys::StackTrack track("current()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    mem::RefCntObjectRef entry = ContainerContext::current()->find(KEY);
    return SecurityContextRef(dynamic_cast<SecurityContext*>(entry.get()));
}

mem::RefCntObjectRef SecurityContext::opCreate(const ContainerContextRef&, unsigned int content_key,
                                               PointerInt_t)
{
    const sys::StackTrack track("opCreate()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (content_key != KEY) {
        return mem::RefCntObjectRef();
    }
    return mem::RefCntObjectRef(new SecurityContext);
}

}
