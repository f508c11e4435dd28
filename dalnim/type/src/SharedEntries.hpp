#ifndef DALNIM_TYPE_SRC_SHAREDENTRIES_HPP
#define DALNIM_TYPE_SRC_SHAREDENTRIES_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/mem/RefCntObjectRef.hpp>

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace com::kor::dal::nim::type {

/**
 * The entries of a duplicated context, in the order of their keys. Contexts and snapshots with the same
 * entries share one list. It is immutable once filled, and owns no references: each of its users owns one to
 * each object.
 */
class EntryList
{
public:
    /** A reference that is not counted. */
    class UncountedRef : public mem::RefCntObjectRef
    {
    public:
        /** Leaves the count of `ref` to the users of the list. */
        explicit UncountedRef(mem::RefCntObjectRef&& ref) noexcept : mem::RefCntObjectRef(std::move(ref)) {}
        UncountedRef(UncountedRef&&) noexcept = default;
        UncountedRef& operator=(UncountedRef&&) = delete;
        ~UncountedRef()
        {
            rco = nullptr;
        }

        /** Transfers a count that the caller owns to the result. */
        mem::RefCntObjectRef counted() const noexcept;
    };

    struct Entry
    {
        UInt32_t cid;
        /** May be empty. */
        UncountedRef ref;
    };
    typedef std::vector<Entry> Entries;

    /** An empty list, with memory for `capacity` entries. */
    explicit EntryList(std::size_t capacity)
    {
        content.reserve(capacity);
    }

    /**
     * Appends an entry, whose key must be above all others. The count of `ref` passes to the first user.
     * Does not throw within the capacity.
     */
    void append(UInt32_t cid, mem::RefCntObjectRef&& ref)
    {
        content.push_back({cid, UncountedRef(std::move(ref))});
    }
    /** Records that an entry is a clone, so that other contexts may not have the same entries. */
    void makeExclusive() noexcept
    {
        shareable = false;
    }

    const Entries& entries() const noexcept
    {
        return content;
    }
    /** Whether several contexts may have these entries. */
    bool isShareable() const noexcept
    {
        return shareable;
    }
    /** Returns the reference that is stored under a key, or null. It is valid as long as the list. */
    const mem::RefCntObjectRef* find(UInt32_t cid) const noexcept;

    /** Acquires a reference to each object, or to none if that throws. */
    void acquire() const;
    /**
     * Releases a reference to each object, in the order of their keys. Discards exceptions of their
     * destructors. The thread cannot be cancelled during the call.
     */
    void release() const noexcept;

private:
    Entries content;
    bool shareable = true;
};

/** Owns a reference to each entry of a list. Queued tasks of one submitter share one such object. */
class SharedEntries
{
public:
    /** Acquires a reference to each entry. */
    explicit SharedEntries(std::shared_ptr<const EntryList> entries);
    SharedEntries(SharedEntries&&) noexcept = default;
    SharedEntries& operator=(SharedEntries&&) = delete;
    ~SharedEntries();

    const std::shared_ptr<const EntryList>& list() const noexcept
    {
        return referenced;
    }
    /** Transfers the references to the caller. */
    std::shared_ptr<const EntryList> releaseOwnership() noexcept
    {
        return std::move(referenced);
    }

private:
    /** Null after the references were transferred. */
    std::shared_ptr<const EntryList> referenced;
};

/** Releases a reference to an object, which may be null. Discards an exception of its destructor. */
void releaseQuietly(const mem::RefCntObject* object) noexcept;

}

#endif
