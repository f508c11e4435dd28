#ifndef DALNIM_TYPE_SRC_SHAREDCONTENT_HPP
#define DALNIM_TYPE_SRC_SHAREDCONTENT_HPP

#include <dalnim/mem/RefCntObjectRef.hpp>

#include <atomic>
#include <memory>
#include <vector>

namespace com::kor::dal::nim::type {

/**
 * The duplicate of a context's content that all tasks hold in common which were given it while it did
 * not change. It is made once, holding it is one count, and it never changes itself.
 *
 * As long as the source has the entries, they are borrowed: no count of theirs is held here. Before the
 * source gives one up it makes the holders independent: the counts are taken then, if anybody holds
 * this, and given up by the last holder. So an entry goes when its last holder does, as if each had a
 * count of its own.
 *
 * Thread safety: hold() may be called by whoever reads the source, or holds this already; drop() by any
 * holder; makeIndependent() by the source alone, which nobody reads meanwhile.
 */
class SharedContent
{
public:
    struct Entry
    {
        UInt32_t cid;
        /** May be null. */
        const mem::RefCntObject* object;
    };
    /** In the order of their keys. */
    typedef std::vector<Entry> Entries;

    /** Borrows the entries of a source; nobody holds this yet. */
    explicit SharedContent(Entries borrowed) noexcept;
    /** Entries that were cloned for the only holder, the caller. Their counts are taken here. */
    static std::unique_ptr<SharedContent> forOne(Entries cloned);

    SharedContent(const SharedContent&) = delete;
    SharedContent& operator=(const SharedContent&) = delete;

    const Entries& entries() const noexcept
    {
        return content;
    }

    /** Whether any number may hold it. */
    bool isForAll() const noexcept
    {
        return !isCloned;
    }
    void hold() noexcept
    {
        holders.fetch_add(ONE, std::memory_order_relaxed);
    }
    /** The last one gives up the entries, in their order, and what their destructors throw is dropped. */
    void drop() noexcept;
    /** The source parts with this, which lives as long as anybody holds it. */
    void makeIndependent() noexcept;

    /** Gives up one count of an entry. What its destructor throws is dropped. */
    static void release(const mem::RefCntObject* object) noexcept;

private:
    void acquireAll() const;
    void releaseAll() const noexcept;

    static constexpr UInt64_t INDEPENDENT = 1;
    /** One holder. */
    static constexpr UInt64_t ONE = 2;

    const Entries content;
    bool isCloned = false;
    /** Twice the number of holders, and INDEPENDENT once the counts are held here. */
    std::atomic<UInt64_t> holders{0};
};

}

#endif
