#ifndef DALNIM_TYPE_SRC_SHAREDENTRIES_HPP
#define DALNIM_TYPE_SRC_SHAREDENTRIES_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/mem/RefCntObject.hpp>

#include <memory>
#include <vector>

namespace com::kor::dal::nim::type {

/**
 * What a duplicate of a context contains: keys and objects, in the order of the keys. It is immutable and
 * holds no references itself: each of its users acquires one to each object, and releases it again.
 */
class EntryList
{
public:
    struct Entry
    {
        UInt32_t cid;
        /** May be null. */
        const mem::RefCntObject* object;
    };
    typedef std::vector<Entry> Entries;

    /** `shareable` is false for clones, which belong to one user. */
    EntryList(Entries list, bool shareable) noexcept;

    const Entries& entries() const noexcept
    {
        return content;
    }
    /** Whether several contexts may have the same objects. */
    bool isShareable() const noexcept
    {
        return shareable;
    }

    /** Acquires a reference to each object. */
    void acquire() const;
    /** Releases a reference to each object, in their order. Exceptions of their destructors are discarded. */
    void release() const noexcept;

private:
    const Entries content;
    const bool shareable;
};

/** Owns a reference to each entry of a list. The tasks that wait with the same context share one of these. */
class SharedEntries
{
public:
    explicit SharedEntries(std::shared_ptr<const EntryList> entries);
    SharedEntries(const SharedEntries&) = delete;
    SharedEntries& operator=(const SharedEntries&) = delete;
    ~SharedEntries();

    const std::shared_ptr<const EntryList>& list() const noexcept
    {
        return referenced;
    }

private:
    const std::shared_ptr<const EntryList> referenced;
};

/** Releases a reference to an object, which may be null. An exception of its destructor is discarded. */
void releaseQuietly(const mem::RefCntObject* object) noexcept;

}

#endif
