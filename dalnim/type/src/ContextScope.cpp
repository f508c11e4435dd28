#include <dalnim/dalbase.hpp>

#include <dalnim/type/ContextScope.hpp>

#define NIM_LOG_FILE "type/src/ContextScope"
#include <dalnim/log/LibraryModule.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/type/nsdefs.hpp>

namespace com::kor::dal::nim::type {

namespace {

/** The key of an inactive scope. No content can be stored under it. */
constexpr UInt32_t RESERVED_KEY = 0xFFFFFFFF;

}

ContextScope::ContextScope() noexcept : key(RESERVED_KEY), prm(0), fini(nullptr), invoke(false) {}

ContextScope::ContextScope(Operation factory, Operation cleanup, unsigned int content_key,
                           PointerInt_t op_param, const ContainerContextRef& target)
    : ref(target), key(content_key), prm(op_param), fini(cleanup), invoke(false)
{
    const sys::StackTrack track("ContextScope()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    enter(factory);
}

ContextScope::~ContextScope()
{
    try {
        if (cleanupIsDue()) {
            // Inside of the try block, because it may throw std::bad_alloc.
            const sys::StackTrack track("~ContextScope()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
            fini(ref, key, prm);
        }
    } catch (const std::exception& exc) {
        NIM_LOG_TRAPPED(Severity_WARNING, exc, "Unexpected context exception");
    }
}

ContextScope& ContextScope::set(Operation factory, Operation cleanup, unsigned int content_key,
                                PointerInt_t op_param, const ContainerContextRef& target)
{
    const sys::StackTrack track("set()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (cleanupIsDue()) {
        fini(ref, key, prm);
    }
    ref = target;
    key = content_key;
    prm = op_param;
    fini = cleanup;
    invoke = false;
    enter(factory);
    return *this;
}

ContextScope& ContextScope::clear()
{
    if (cleanupIsDue()) {
        const sys::StackTrack track("clear()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
        fini(ref, key, prm);
    }
    ref = nullptr;
    key = RESERVED_KEY;
    prm = 0;
    fini = nullptr;
    invoke = false;
    return *this;
}

mem::RefCntObjectRef ContextScope::opRemove(const ContainerContextRef& target, unsigned int content_key,
                                            PointerInt_t)
{
    const sys::StackTrack track("opRemove()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!target) {
        return mem::RefCntObjectRef();
    }
    return ContainerContextRef(target)->remove(content_key);
}

void ContextScope::enter(Operation factory)
{
    if (!ref || factory == nullptr || !!ref->find(key)) {
        return;
    }
    ref->add(factory(ref, key, prm), key);
    invoke = true;
}

bool ContextScope::cleanupIsDue() const noexcept
{
    return invoke && !!ref && fini != nullptr;
}

}
