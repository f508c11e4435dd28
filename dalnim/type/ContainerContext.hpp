#ifndef DALNIM_TYPE_CONTAINERCONTEXT_HPP
#define DALNIM_TYPE_CONTAINERCONTEXT_HPP

#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/type/Context.hpp>
#include <dalnim/type/ContextStatistics.hpp>
#include <qv/pmx/TryLock.hpp>
#include <qv/pmx/thread_safety.h>

#include <map>
#include <memory>

namespace com::kor::dal::nim::mt {
class TaskEvidence;
}

namespace com::kor::dal::nim::type {

class ContextSnapshot;
class EntryList;
class SharedEntries;

/**
 * A context that contains other objects, stored under content keys.
 *
 * Copying duplicates it: the attributes in each key determine whether the copy leaves that entry out, shares
 * it or clones it. New threads and pool tasks start with a duplicate of their creator's context.
 *
 * Thread safety: none, a context is private to a thread. Several threads may copy and read one that no thread
 * changes.
 */
class DALNIM_API ContainerContext : public Context
{
public:
    static constexpr const char CLASS_NAME[] = "ContainerContext";

    /**
     * Stores a reference, which may be empty.
     * @return false if the key already has an entry, which remains
     * @throws sys::system_error  22 (EINVAL): "Context key mismatch." if `ref` is a context with another key,
     *                            "Content flagged for duplication is not Cloneable.", and the errors of
     *                            keyAttributes()
     */
    bool add(const mem::RefCntObjectRef& ref, unsigned int cid);
    /**
     * Stores a context under its own key.
     * @return false if the key already has an entry, which remains, or if `ref` is empty
     * @throws sys::system_error  22 (EINVAL): "Context flagged for duplication is not Cloneable.", and the
     * errors of keyAttributes()
     */
    bool add(const ContextRef& ref);

    /** Returns the entry of a key, or an empty reference. The result is valid until the entry is removed. */
    const mem::ConstRefCntObjectRef& find(unsigned int cid) const;
    /** The same. A copy of the reference can modify the object. */
    const mem::RefCntObjectRef& find(unsigned int cid);

    /** Removes the entry of a key and returns its reference, or an empty one. */
    mem::RefCntObjectRef remove(unsigned int cid);
    /** Swaps the contents. References that find() has returned remain valid. */
    void swap(ContainerContext& ref);
    /**
     * Releases all entries in the order of their keys. Their destructors find this context empty; exceptions
     * that they throw are discarded. The thread cannot be cancelled during the call.
     */
    void clearContent() noexcept;

    /** Returns the calling thread's current context. */
    static mem::RcoRef<ContainerContext> current();

    /** Returns how many contexts were made and duplicated since ContextStatistics::enable(); acquires no
     * lock. */
    static ContextStatistics statistics() noexcept;

protected:
    ContainerContext();
    /** Duplicates `ref`. Throws like operator=. */
    ContainerContext(const ContainerContext& ref);
    /**
     * Replaces the content with a duplicate of that of `ref`, and releases the old content like
     * clearContent(). `ref` may be this context, which then loses the entries that duplicates leave out. If
     * the duplication throws, the content is unchanged. Exceptions of clone() propagate.
     * @throws std::bad_cast      if an entry whose key requires cloning, or its clone, does not support it
     * @throws sys::system_error  22 (EINVAL) if an entry whose key requires cloning is empty
     */
    ContainerContext& operator=(const ContainerContext& ref);
    ~ContainerContext() noexcept(false) override;

private:
    friend class ContextSnapshot;
    // Reads the entries in a signal handler.
    friend class mt::TaskEvidence;

    typedef std::map<UInt32_t, mem::RefCntObjectRef> Content;

    const mem::RefCntObjectRef* lookUp(UInt32_t cid) const;
    bool insert(UInt32_t cid, const mem::RefCntObjectRef& ref);
    SharedEntries duplicate() const;
    void adopt(SharedEntries entries) noexcept;
    void replace(std::shared_ptr<const EntryList> entries) noexcept;
    void materialize();
    std::shared_ptr<SharedEntries> snapshot() const;
    void detachSnapshot() noexcept;

    /** The entries, unless `isAdopted`. */
    Content content;
    /**
     * The entries if `isAdopted`: those of a duplicate, unchanged since. This context owns one reference to
     * each. Retained after a change, because find() may have returned references into the list.
     */
    std::shared_ptr<const EntryList> adopted;
    bool isAdopted = false;
    /** Several threads may read this context. */
    mutable qv::TryLock cacheLock;
    /** The snapshot of the current entries, as long as tasks hold it. */
    mutable std::weak_ptr<SharedEntries> cachedSnapshot DALNIM_GUARDED_BY(cacheLock);
};

/** A counting reference to a context with content. */
typedef mem::RcoRef<ContainerContext> ContainerContextRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<type::ContainerContext>;
extern template class DALNIM_API RcoRef<type::ContainerContext>;

}

#endif
