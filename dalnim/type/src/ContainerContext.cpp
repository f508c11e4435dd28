#include <dalnim/dalbase.hpp>

#include <dalnim/type/ContainerContext.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <dalnim/type/nsdefs.hpp>

#include <cerrno>
#include <memory>

namespace com::kor::dal::nim::type {

namespace {

constexpr UInt32_t SHARED = 1;
constexpr UInt32_t SHALLOW = 2;
constexpr UInt32_t DEEP = 4;

/** What find() refers to when a key is absent. */
const mem::RefCntObjectRef NULL_RCO_REF;

/** Content that is to be cloned later must be able to, which is tested when it is filed. */
void requireCloneable(const mem::RefCntObject& object, UInt32_t attributes, const char* complaint)
{
    if ((attributes & (SHALLOW | DEEP)) != 0 && dynamic_cast<const Cloneable*>(&object) == nullptr) {
        throw sys::system_error(EINVAL, complaint);
    }
}

mem::RefCntObjectRef cloned(const mem::RefCntObjectRef& ref, bool deep)
{
    std::unique_ptr<Cloneable> copy(dynamic_cast<const Cloneable&>(*ref).clone(deep));
    auto* const object = dynamic_cast<mem::RefCntObject*>(copy.get());
    if (object == nullptr) {
        mem::throwBadCastException();
    }
    mem::RefCntObjectRef result(object);
    copy.release();
    return result;
}

/**
 * Drops an entry, and what its object's destructor throws. A reference would end the process on that,
 * so the last count is given up by the throwing release.
 */
void dropQuietly(mem::RefCntObjectRef& ref) noexcept
{
    const mem::RefCntObject* const object = ref.get();
    if (object == nullptr) {
        return;
    }
    try {
        object->acquireRef();
        ref.clear();
        object->releaseRef();
    } catch (...) {
    }
}

template <class Content>
void dropAll(Content& entries) noexcept
{
    for (auto& entry : entries) {
        dropQuietly(entry.second);
    }
}

}

ContainerContext::ContainerContext() = default;

ContainerContext::ContainerContext(const ContainerContext& ref)
    : type::Object(ref), mem::RefCntObject(ref), Context(ref)
{
    const sys::StackTrack track("ContainerContext()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    *this = ref;
}

ContainerContext& ContainerContext::operator=(const ContainerContext& ref)
{
    const sys::StackTrack track("operator = ()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    Content duplicate;
    for (const auto& [cid, entry] : ref.content) {
        switch (keyAttributes(cid)) {
        case SHARED:
            duplicate.emplace_hint(duplicate.end(), cid, entry);
            break;
        case SHALLOW:
            duplicate.emplace_hint(duplicate.end(), cid, cloned(entry, false));
            break;
        case DEEP:
        case DEEP | SHALLOW:
            duplicate.emplace_hint(duplicate.end(), cid, cloned(entry, true));
            break;
        default:
            break;
        }
    }
    content.swap(duplicate);
    Context::operator=(ref);
    dropAll(duplicate);
    return *this;
}

ContainerContext::~ContainerContext() noexcept(false)
{
    clearContent();
}

bool ContainerContext::add(const mem::RefCntObjectRef& ref, unsigned int cid)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const mem::RefCntObject* const object = ref.get();
    const auto* const context = dynamic_cast<const Context*>(object);
    if (context != nullptr && context->key() != cid) {
        throw sys::system_error(EINVAL, "Context key mismatch.");
    }
    const UInt32_t attributes = keyAttributes(cid);
    if (object != nullptr) {
        requireCloneable(*object, attributes, "Content flagged for duplication is not Cloneable.");
    }
    return content.try_emplace(cid, ref).second;
}

bool ContainerContext::add(const ContextRef& ref)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!ref) {
        return false;
    }
    const UInt32_t cid = ref->key();
    requireCloneable(*ref, keyAttributes(cid), "Context flagged for duplication is not Cloneable.");
    return content.try_emplace(cid, ref).second;
}

const mem::ConstRefCntObjectRef& ContainerContext::find(unsigned int cid) const
{
    const sys::StackTrack track("find()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const auto entry = content.find(cid);
    return entry != content.end() ? entry->second : NULL_RCO_REF;
}

const mem::RefCntObjectRef& ContainerContext::find(unsigned int cid)
{
    const sys::StackTrack track("find()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const auto entry = content.find(cid);
    return entry != content.end() ? entry->second : NULL_RCO_REF;
}

mem::RefCntObjectRef ContainerContext::remove(unsigned int cid)
{
    const sys::StackTrack track("remove()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    mem::RefCntObjectRef removed;
    const auto entry = content.find(cid);
    if (entry != content.end()) {
        removed = std::move(entry->second);
        content.erase(entry);
    }
    return removed;
}

void ContainerContext::swap(ContainerContext& ref)
{
    const sys::StackTrack track("swap()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    content.swap(ref.content);
}

void ContainerContext::clearContent() noexcept
{
    Content dying;
    dying.swap(content);
    dropAll(dying);
}

ContainerContextRef ContainerContext::current()
{
    const sys::StackTrack track("current()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    return sys::internal::ThreadState::current().contextRef;
}

}
