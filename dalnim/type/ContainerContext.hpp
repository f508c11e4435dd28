#ifndef DALNIM_TYPE_CONTAINERCONTEXT_HPP
#define DALNIM_TYPE_CONTAINERCONTEXT_HPP

#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/type/Context.hpp>

#include <atomic>
#include <map>
#include <memory>

namespace com::kor::dal::nim::type {

class ContextSnapshot;
class EntryList;
class SharedEntries;

/**
 * A context that contains other objects, filed under content keys.
 *
 * Copying one duplicates it: the attributes in each key decide whether that entry is left behind,
 * shared or cloned. That is how context travels to a new thread.
 *
 * It has no lock: it is private to a thread, and a source must not change while it is copied.
 */
class DALNIM_API ContainerContext : public Context
{
public:
    static constexpr const char CLASS_NAME[] = "ContainerContext";

    /**
     * Files a reference, also an empty one; false when the key is taken, whose entry then stays.
     * Throws sys::system_error 22: "Context key mismatch." for a context under another key than its
     * own, "Content flagged for duplication is not Cloneable."; and what keyAttributes() throws.
     */
    bool add(const mem::RefCntObjectRef& ref, unsigned int cid);
    /**
     * Files a context under its own key; false when that is taken or `ref` is empty. Throws
     * sys::system_error 22, "Context flagged for duplication is not Cloneable."
     */
    bool add(const ContextRef& ref);

    /** The entry under a key, or an empty reference. The result is valid until the entry goes. */
    const mem::ConstRefCntObjectRef& find(unsigned int cid) const;
    /** The same; through it an entry can be handed on, and its object changed. */
    const mem::RefCntObjectRef& find(unsigned int cid);

    /** Takes an entry out; empty when there was none. */
    mem::RefCntObjectRef remove(unsigned int cid);
    /** Exchanges the contents of the two. */
    void swap(ContainerContext& ref);
    /**
     * Drops all entries, in the order of their keys. They find this context empty while they go;
     * what their destructors throw is dropped too. The thread cannot be cancelled during it.
     */
    void clearContent() noexcept;

    /** The calling thread's current context. */
    static mem::RcoRef<ContainerContext> current();

protected:
    ContainerContext();
    /** Duplicates `ref`. Throws as operator=. */
    ContainerContext(const ContainerContext& ref);
    /**
     * Replaces the content by a duplicate of that of `ref`, which may be this context: it then loses
     * what its keys leave behind. The old content goes as by clearContent(). Throws `std::bad_cast`
     * for content that cannot be cloned as its key demands, sys::system_error 22 for an empty
     * reference under such a key, and what cloning throws; the content stays as it was then.
     */
    ContainerContext& operator=(const ContainerContext& ref);
    ~ContainerContext() noexcept(false) override;

private:
    friend class ContextSnapshot;

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
     * The entries if `isAdopted`: those of a duplicate, which nothing was added to or removed from since.
     * This context owns one reference to each. Afterwards kept for callers that hold references into it.
     */
    std::shared_ptr<const EntryList> adopted;
    bool isAdopted = false;
    /** Whether a thread uses `cachedSnapshot`: several may read this context. */
    mutable std::atomic<bool> cacheInUse{false};
    /** The snapshot of the current entries, as long as tasks hold it. */
    mutable std::weak_ptr<SharedEntries> cachedSnapshot;
};

/** A counted reference to a context with content. */
typedef mem::RcoRef<ContainerContext> ContainerContextRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<type::ContainerContext>;
extern template class DALNIM_API RcoRef<type::ContainerContext>;

}

#endif
