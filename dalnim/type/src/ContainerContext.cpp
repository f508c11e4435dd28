#include <dalnim/dalbase.hpp>

#include <dalnim/type/ContainerContext.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <dalnim/type/nsdefs.hpp>
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

template <class Content>
void releaseAll(Content& entries) noexcept
{
    // Cancelled in the destructor of an entry, the thread would end the process.
    const qv::CancellationOff cancellationOff;
    for (auto& entry : entries) {
        const ReleasedEntry released(std::move(entry.second));
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
    ref.materialize();
    materialize();
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
    detachSnapshot();
    content.swap(duplicate);
    Context::operator=(ref);
    if (!duplicate.empty()) {
        releaseAll(duplicate);
    }
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
    materialize();
    const bool isNew = content.try_emplace(cid, ref).second;
    if (isNew) {
        detachSnapshot();
    }
    return isNew;
}

const mem::ConstRefCntObjectRef& ContainerContext::find(unsigned int cid) const
{
    const sys::StackTrack track("find()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    materialize();
    const auto entry = content.find(cid);
    return entry != content.end() ? entry->second : NULL_RCO_REF;
}

const mem::RefCntObjectRef& ContainerContext::find(unsigned int cid)
{
    const sys::StackTrack track("find()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    materialize();
    const auto entry = content.find(cid);
    return entry != content.end() ? entry->second : NULL_RCO_REF;
}

mem::RefCntObjectRef ContainerContext::remove(unsigned int cid)
{
    const sys::StackTrack track("remove()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    materialize();
    mem::RefCntObjectRef removed;
    const auto entry = content.find(cid);
    if (entry != content.end()) {
        detachSnapshot();
        removed = std::move(entry->second);
        content.erase(entry);
    }
    return removed;
}

void ContainerContext::swap(ContainerContext& ref)
{
    const sys::StackTrack track("swap()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    materialize();
    ref.materialize();
    content.swap(ref.content);
    cachedSnapshot.swap(ref.cachedSnapshot);
}

void ContainerContext::clearContent() noexcept
{
    adopt(nullptr);
}

/**
 * Replaces the content by entries, of which this context acquires references of its own. The old content is
 * released afterwards: destructors of old entries find the new content.
 */
void ContainerContext::adopt(std::shared_ptr<const EntryList> entries) noexcept
{
    if (entries != nullptr) {
        entries->acquire();
    }
    adopted.swap(entries);
    // A content without entries may have a snapshot, too.
    detachSnapshot();
    if (!content.empty()) {
        Content replaced;
        replaced.swap(content);
        releaseAll(replaced);
    } else if (entries != nullptr && !entries->entries().empty()) {
        const qv::CancellationOff cancellationOff;
        entries->release();
    }
}

/** Moves adopted entries to the content, where they have addresses. */
void ContainerContext::materialize() const
{
    if (adopted == nullptr) {
        return;
    }
    Content entries;
    for (const EntryList::Entry& entry : adopted->entries()) {
        entries.emplace_hint(entries.end(), entry.cid,
                             mem::RefCntObjectRef::unconst(mem::ConstRefCntObjectRef(entry.object)));
    }
    content.swap(entries);
    adopted->release();
    adopted.reset();
}

/** A duplicate of the content, with references of its own; null if there are no entries. */
std::shared_ptr<const SharedEntries> ContainerContext::snapshot() const
{
    if (content.empty() && adopted == nullptr) {
        return nullptr;
    }
    if (auto shared = sharedSnapshot()) {
        return shared;
    }
    return clonedSnapshot();
}

/**
 * The snapshot that the tasks of this submitter share until this context changes; null if entries must be
 * cloned for each task. The cache owns no references: the last task that releases the snapshot ends it.
 */
std::shared_ptr<const SharedEntries> ContainerContext::sharedSnapshot() const
{
    {
        const std::unique_lock<std::mutex> lock(cacheLock, std::try_to_lock);
        if (lock) {
            if (auto cached = cachedSnapshot.lock()) {
                return cached;
            }
        }
    }
    qv::perturb();
    auto entries = shareableEntries();
    if (entries == nullptr) {
        return nullptr;
    }
    auto made = std::make_shared<const SharedEntries>(std::move(entries));
    const std::unique_lock<std::mutex> lock(cacheLock, std::try_to_lock);
    if (lock) {
        cachedSnapshot = made;
    }
    return made;
}

/** The entries of a duplicate, if it shares them all; null if entries must be cloned. */
std::shared_ptr<const EntryList> ContainerContext::shareableEntries() const
{
    if (adopted != nullptr && adopted->isShareable()) {
        return adopted;
    }
    materialize();
    EntryList::Entries entries;
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
    return std::make_shared<const EntryList>(std::move(entries), true);
}

/** A snapshot for one task, with clones of its own. */
std::shared_ptr<const SharedEntries> ContainerContext::clonedSnapshot() const
{
    const sys::internal::CurrentContextRef copy(new sys::internal::CurrentContext(*this));
    const Content& duplicate = static_cast<const ContainerContext&>(*copy).content;
    EntryList::Entries entries;
    entries.reserve(duplicate.size());
    for (const auto& [cid, entry] : duplicate) {
        entries.push_back({cid, entry.get()});
    }
    return std::make_shared<const SharedEntries>(
        std::make_shared<const EntryList>(std::move(entries), false));
}

/** The content changes: tasks that are added afterwards get a new snapshot. */
void ContainerContext::detachSnapshot() noexcept
{
    cachedSnapshot.reset();
}

ContainerContextRef ContainerContext::current()
{
    const sys::StackTrack track("current()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    ContainerContextRef context = sys::internal::ThreadState::current().contextRef;
    context->materialize();
    return context;
}

}
