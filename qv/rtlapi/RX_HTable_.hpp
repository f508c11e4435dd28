#ifndef QV_RTLAPI_RX_HTABLE_PRIVATE_HPP
#define QV_RTLAPI_RX_HTABLE_PRIVATE_HPP

#include <cstddef>
#include <functional>
#include <unordered_set>

/**
 * The table beneath the hash collections: elements of a type E with `hash()` and `operator==`, each
 * once. Finding, inserting and erasing take constant time on average; the table grows by rehashing as
 * it fills, and elements never move.
 *
 * `changes()` moves with every insertion and removal, so that an iterator sees one made behind its
 * back. Any number of threads may read at once; a thread that writes needs the table for itself.
 */
template <typename E>
class RX_HTable_
{
    struct Hash
    {
        std::size_t operator()(const E& elem) const
        {
            return elem.hash();
        }
    };

    typedef std::unordered_set<E, Hash, std::equal_to<>> Elems;

public:
    /** A place in the table; it stays good until its element goes. */
    typedef typename Elems::const_iterator Place;

    /** An empty table with room for `expected` elements. */
    explicit RX_HTable_(std::size_t expected = 0)
    {
        _elems.reserve(expected);
    }
    RX_HTable_(const RX_HTable_&) = delete;
    RX_HTable_& operator=(const RX_HTable_&) = delete;

    /** The element equal to `elem`, or null. */
    const E* find(const E& elem) const
    {
        const Place place = _elems.find(elem);
        return place == _elems.end() ? nullptr : &*place;
    }

    /** False if an equal element is there already, which then stays. */
    bool insert(const E& elem)
    {
        return counted(_elems.insert(elem).second);
    }

    /** False if no element equals `elem`. The places of all other elements stay good. */
    bool erase(const E& elem)
    {
        return counted(_elems.erase(elem) != 0);
    }

    /** Erases all elements. */
    void clear()
    {
        counted(!_elems.empty());
        _elems.clear();
    }

    /** The number of elements. */
    std::size_t size() const
    {
        return _elems.size();
    }
    /** How often the table was changed; wraps round. */
    std::size_t changes() const
    {
        return _changes;
    }

    /** The first place, or end(). The order means nothing. */
    Place begin() const
    {
        return _elems.begin();
    }
    /** The place behind the last one. */
    Place end() const
    {
        return _elems.end();
    }

private:
    bool counted(bool changed)
    {
        _changes += changed ? 1 : 0;
        return changed;
    }

    Elems _elems;
    std::size_t _changes = 0;
};

#endif
