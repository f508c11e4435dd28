#include <dalnim/dalbase.hpp>

#include <dalnim/type/ContainerContext.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <dalnim/type/src/ContextCounters.hpp>
#include <dalnim/type/src/ContextSnapshot.hpp>
#include <dalnim/type/src/SharedEntries.hpp>
#include <qv/pmx/src/CancellationOff.hpp>
#include <qv/pmx/src/perturb.hpp>

#include <cerrno>
#include <memory>
#include <utility>

namespace com::kor::dal::nim::type {

namespace {

constexpr UInt32_t SHARED = 1;
constexpr UInt32_t SHALLOW = 2;
constexpr UInt32_t DEEP = 4;

/** The result of find() for a key without an entry. */
const mem::RefCntObjectRef NULL_RCO_REF;

/** Throws if content whose key requires cloning is not Cloneable. Checked when it is stored, not when copied.
 */
void requireCloneable(const mem::RefCntObject& object, UInt32_t attributes, const char* message)
{
    if ((attributes & (SHALLOW | DEEP)) != 0 && dynamic_cast<const Cloneable*>(&object) == nullptr) {
        throw sys::system_error(EINVAL, message);
    }
}

/** Returns a clone of an entry. */
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

/** Releases an entry. Unlike its own destructor, which ends the process, discards the object's exception. */
class ReleasedEntry : public mem::RefCntObjectRef
{
public:
    explicit ReleasedEntry(mem::RefCntObjectRef&& ref) noexcept : mem::RefCntObjectRef(std::move(ref)) {}
    ReleasedEntry(const ReleasedEntry&) = delete;
    ReleasedEntry& operator=(const ReleasedEntry&) = delete;
    ~ReleasedEntry()
    {
        type::releaseQuietly(std::exchange(rco, nullptr));
    }
};

/** Appends the entries of a duplicate of `entries`. */
template <class Entries>
void appendDuplicates(EntryList& list, const Entries& entries)
{
    for (const auto& [cid, ref] : entries) {
        const UInt32_t attributes = Context::keyAttributes(cid);
        if (attributes == SHARED) {
            list.append(cid, mem::RefCntObjectRef(ref));
        } else if ((attributes & (SHALLOW | DEEP)) != 0) {
            list.append(cid, cloned(ref, (attributes & DEEP) != 0));
            list.makeExclusive();
        }
    }
}

}

ContainerContext::ContainerContext()
{
    ContextCounters::count(&ContextCounters::Stripe::made);
}

ContainerContext::ContainerContext(const ContainerContext& ref)
    : type::Object(ref), mem::RefCntObject(ref), Context(ref)
{
    if (ref.isAdopted || !ref.content.empty()) {
        const sys::StackTrack track("ContainerContext()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
        *this = ref;
    } else {
        ContextCounters::count(&ContextCounters::Stripe::duplicated);
    }
    // Last: the destructor of a context whose construction fails is not called.
    ContextCounters::count(&ContextCounters::Stripe::made);
}

// A context may be assigned to itself: its duplicate has other entries.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
ContainerContext& ContainerContext::operator=(const ContainerContext& ref)
{
    const sys::StackTrack track("operator = ()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    SharedEntries entries = ref.duplicate();
    Context::operator=(ref);
    adopt(std::move(entries));
    ContextCounters::count(&ContextCounters::Stripe::duplicated);
    return *this;
}

ContainerContext::~ContainerContext() noexcept(false)
{
    clearContent();
    ContextCounters::count(&ContextCounters::Stripe::ended);
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
    return insert(cid, ref);
}

bool ContainerContext::add(const ContextRef& ref)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!ref) {
        return false;
    }
    const UInt32_t cid = ref->key();
    requireCloneable(*ref, keyAttributes(cid), "Context flagged for duplication is not Cloneable.");
    return insert(cid, ref);
}

bool ContainerContext::insert(UInt32_t cid, const mem::RefCntObjectRef& ref)
{
    if (lookUp(cid) != nullptr) {
        return false;
    }
    materialize();
    content.emplace(cid, ref);
    detachSnapshot();
    return true;
}

/** Returns the reference that is stored under a key, or null. */
const mem::RefCntObjectRef* ContainerContext::lookUp(UInt32_t cid) const
{
    if (isAdopted) {
        return adopted->find(cid);
    }
    const auto entry = content.find(cid);
    return entry != content.end() ? &entry->second : nullptr;
}

const mem::ConstRefCntObjectRef& ContainerContext::find(unsigned int cid) const
{
    const sys::StackTrack track("find()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const mem::RefCntObjectRef* const ref = lookUp(cid);
    return ref != nullptr ? *ref : NULL_RCO_REF;
}

const mem::RefCntObjectRef& ContainerContext::find(unsigned int cid)
{
    const sys::StackTrack track("find()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const mem::RefCntObjectRef* const ref = lookUp(cid);
    return ref != nullptr ? *ref : NULL_RCO_REF;
}

mem::RefCntObjectRef ContainerContext::remove(unsigned int cid)
{
    const sys::StackTrack track("remove()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    mem::RefCntObjectRef removed;
    if (lookUp(cid) != nullptr) {
        materialize();
        detachSnapshot();
        const auto entry = content.find(cid);
        removed = std::move(entry->second);
        content.erase(entry);
    }
    return removed;
}

// Without the locks: no other thread uses a context while it changes.
DALNIM_NO_LOCK_ANALYSIS void ContainerContext::swap(ContainerContext& ref)
{
    const sys::StackTrack track("swap()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    content.swap(ref.content);
    adopted.swap(ref.adopted);
    std::swap(isAdopted, ref.isAdopted);
    cachedSnapshot.swap(ref.cachedSnapshot);
}

void ContainerContext::clearContent() noexcept
{
    replace(nullptr);
}

/** Replaces the content by `entries`. */
void ContainerContext::adopt(SharedEntries entries) noexcept
{
    auto list = entries.releaseOwnership();
    replace(list->entries().empty() ? nullptr : std::move(list));
}

/**
 * Replaces the content by entries of which this context owns a reference to each, or by none for null. The
 * old content is released afterwards: destructors of old entries find the new content.
 */
void ContainerContext::replace(std::shared_ptr<const EntryList> entries) noexcept
{
    adopted.swap(entries);
    const bool wasAdopted = std::exchange(isAdopted, adopted != nullptr);
    // A content without entries may have a snapshot, too.
    detachSnapshot();
    if (!content.empty()) {
        Content replaced;
        replaced.swap(content);
        // A thread that is cancelled in the destructor of an entry would end the process.
        const qv::CancellationOff cancellationOff;
        for (auto& entry : replaced) {
            const ReleasedEntry released(std::move(entry.second));
        }
    }
    if (wasAdopted) {
        entries->release();
    }
}

/** Moves adopted entries to the content, where they can be changed. */
void ContainerContext::materialize()
{
    if (!isAdopted) {
        return;
    }
    Content entries;
    for (const EntryList::Entry& entry : adopted->entries()) {
        entries.emplace_hint(entries.end(), entry.cid, mem::RefCntObjectRef());
    }
    // Nothing throws from here on.
    auto moved = entries.begin();
    for (const EntryList::Entry& entry : adopted->entries()) {
        (moved++)->second = entry.ref.counted();
    }
    content.swap(entries);
    isAdopted = false;
}

/** Returns a duplicate of the entries. */
SharedEntries ContainerContext::duplicate() const
{
    if (isAdopted && adopted->isShareable()) {
        return SharedEntries(adopted);
    }
    const auto list = std::make_shared<EntryList>(isAdopted ? adopted->entries().size() : content.size());
    // Releases what was appended if a clone fails.
    SharedEntries entries(list);
    if (isAdopted) {
        appendDuplicates(*list, adopted->entries());
    } else {
        appendDuplicates(*list, content);
    }
    return entries;
}

/**
 * Returns a duplicate of the entries for a task, or null if there are none. If all of them are shared, the
 * snapshot is that of all tasks that are added until this context changes. The cache owns nothing: the last
 * task that releases the snapshot ends it.
 */
std::shared_ptr<SharedEntries> ContainerContext::snapshot() const
{
    if (content.empty() && !isAdopted) {
        return nullptr;
    }
    // A thread that finds the cache in use does not wait, but makes a snapshot of its own.
    if (cacheLock.tryLock()) {
        auto cached = cachedSnapshot.lock();
        cacheLock.unlock();
        if (cached != nullptr) {
            return cached;
        }
    }
    qv::perturb();
    auto made = std::make_shared<SharedEntries>(duplicate());
    if (made->list()->isShareable() && cacheLock.tryLock()) {
        cachedSnapshot = made;
        cacheLock.unlock();
    }
    return made;
}

/** Detaches the snapshot before the content changes: tasks that are added afterwards get a new one. */
// Without the lock: no other thread uses a context while it changes.
DALNIM_NO_LOCK_ANALYSIS void ContainerContext::detachSnapshot() noexcept
{
    cachedSnapshot.reset();
}

ContextStatistics ContainerContext::statistics() noexcept
{
    return ContextCounters::read();
}

ContainerContextRef ContainerContext::current()
{
    const sys::StackTrack track("current()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    return sys::internal::ThreadState::current().contextRef;
}

}
