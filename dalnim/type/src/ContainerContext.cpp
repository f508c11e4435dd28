#include <dalnim/dalbase.hpp>

#include <dalnim/type/ContainerContext.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <dalnim/type/src/ContextSnapshot.hpp>
#include <dalnim/type/src/SharedContent.hpp>
#include <qv/pmx/src/perturb.hpp>

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
    static_cast<void>(copy.release());
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
    } catch (...) {
        return;
    }
    ref.clear();
    SharedContent::release(object);
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

// Also from itself: entries that are not handed on go, and those to be copied are new ones.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
ContainerContext& ContainerContext::operator=(const ContainerContext& ref)
{
    const sys::StackTrack track("operator = ()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    ref.unpack();
    unpack();
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
    partWithHeirs();
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
    return file(cid, ref);
}

bool ContainerContext::add(const ContextRef& ref)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!ref) {
        return false;
    }
    const UInt32_t cid = ref->key();
    requireCloneable(*ref, keyAttributes(cid), "Context flagged for duplication is not Cloneable.");
    return file(cid, ref);
}

bool ContainerContext::file(UInt32_t cid, const mem::RefCntObjectRef& ref)
{
    unpack();
    const bool isNew = content.try_emplace(cid, ref).second;
    if (isNew) {
        partWithHeirs();
    }
    return isNew;
}

const mem::ConstRefCntObjectRef& ContainerContext::find(unsigned int cid) const
{
    const sys::StackTrack track("find()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    unpack();
    const auto entry = content.find(cid);
    return entry != content.end() ? entry->second : NULL_RCO_REF;
}

const mem::RefCntObjectRef& ContainerContext::find(unsigned int cid)
{
    const sys::StackTrack track("find()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    unpack();
    const auto entry = content.find(cid);
    return entry != content.end() ? entry->second : NULL_RCO_REF;
}

mem::RefCntObjectRef ContainerContext::remove(unsigned int cid)
{
    const sys::StackTrack track("remove()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    unpack();
    mem::RefCntObjectRef removed;
    const auto entry = content.find(cid);
    if (entry != content.end()) {
        partWithHeirs();
        removed = std::move(entry->second);
        content.erase(entry);
    }
    return removed;
}

void ContainerContext::swap(ContainerContext& ref)
{
    const sys::StackTrack track("swap()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    unpack();
    ref.unpack();
    content.swap(ref.content);
    // Who shares a content borrows from it, wherever it is.
    handedOn.store(ref.handedOn.exchange(handedOn.load()));
}

void ContainerContext::clearContent() noexcept
{
    inherit(ContextSnapshot());
}

void ContainerContext::inherit(ContextSnapshot&& snapshot) noexcept
{
    // The new content is there when the old entries go, which may look.
    SharedContent* const dropped = inherited;
    inherited = snapshot.content;
    snapshot.content = nullptr;
    if (!content.empty()) {
        partWithHeirs();
        Content dying;
        dying.swap(content);
        dropAll(dying);
    }
    if (dropped != nullptr) {
        dropped->drop();
    }
}

/** A duplicate of the content, held with one count for the caller; null when there is none to share. */
SharedContent* ContainerContext::shareContent() const
{
    if (content.empty() && inherited == nullptr) {
        return nullptr;
    }
    if (SharedContent* const shared = findShared()) {
        shared->hold();
        return shared;
    }
    return content.empty() ? nullptr : cloneContent();
}

/** What can be held in common; null when there is nothing, or each is to have clones of its own. */
SharedContent* ContainerContext::findShared() const
{
    if (inherited != nullptr && inherited->isForAll()) {
        return inherited;
    }
    unpack();
    SharedContent* shared = handedOn.load(std::memory_order_acquire);
    if (shared != nullptr || content.empty()) {
        return shared;
    }
    SharedContent::Entries entries;
    entries.reserve(content.size());
    for (const auto& [cid, entry] : content) {
        const UInt32_t attributes = keyAttributes(cid);
        if ((attributes & (SHALLOW | DEEP)) != 0) {
            return nullptr;
        }
        if (attributes == SHARED) {
            entries.push_back({cid, entry.get()});
        }
    }
    auto made = std::make_unique<SharedContent>(std::move(entries));
    qv::perturb();
    if (!handedOn.compare_exchange_strong(shared, made.get(), std::memory_order_acq_rel)) {
        return shared;
    }
    return made.release();
}

/** A duplicate with clones of its own. */
SharedContent* ContainerContext::cloneContent() const
{
    const sys::internal::CurrentContextRef copy(new sys::internal::CurrentContext(*this));
    const Content& cloned = static_cast<const ContainerContext&>(*copy).content;
    SharedContent::Entries entries;
    entries.reserve(cloned.size());
    for (const auto& [cid, entry] : cloned) {
        entries.push_back({cid, entry.get()});
    }
    return SharedContent::forOne(std::move(entries)).release();
}

/** Files what was inherited, before anybody looks. */
void ContainerContext::unpack() const
{
    if (inherited == nullptr) {
        return;
    }
    Content unpacked;
    for (const SharedContent::Entry& entry : inherited->entries()) {
        unpacked.emplace_hint(unpacked.end(), entry.cid,
                              mem::RefCntObjectRef::unconst(mem::ConstRefCntObjectRef(entry.object)));
    }
    content.swap(unpacked);
    SharedContent* const packed = inherited;
    inherited = nullptr;
    packed->drop();
}

/** Makes those independent who share what is about to change. */
void ContainerContext::partWithHeirs() noexcept
{
    if (SharedContent* const shared = handedOn.exchange(nullptr, std::memory_order_acq_rel)) {
        shared->makeIndependent();
    }
}

ContainerContextRef ContainerContext::current()
{
    const sys::StackTrack track("current()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    ContainerContextRef context = sys::internal::ThreadState::current().contextRef;
    context->unpack();
    return context;
}

}
