#ifndef QV_RTLAPI_RX_HTABLE_PRIVATE_HPP
#define QV_RTLAPI_RX_HTABLE_PRIVATE_HPP

#include <cstddef>
#include <functional>
#include <unordered_set>

/**
 * The hash table of the hash collections: unique elements of a type E with `hash()` and `operator==`.
 * Finding, inserting and erasing take constant time on average. The table is rehashed as it grows; elements
 * are never moved in memory.
 *
 * `changes()` changes with every insertion and removal, so that iterators detect modifications.
 *
 * Thread safety: any number of threads may read concurrently; modification requires exclusive access.
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
    /** An iterator, valid until its element is erased. */
    typedef typename Elems::const_iterator Place;

    /** Constructs an empty table, with memory reserved for `expected` elements. */
    explicit RX_HTable_(std::size_t expected = 0)
    {
        _elems.reserve(expected);
    }
    RX_HTable_(const RX_HTable_&) = delete;
    RX_HTable_& operator=(const RX_HTable_&) = delete;

    /** Returns the element that equals `elem`, or null. */
    const E* find(const E& elem) const
    {
        const Place place = _elems.find(elem);
        return place == _elems.end() ? nullptr : &*place;
    }

    /** Inserts a copy of `elem`. Returns false if the table already contains an equal element. */
    bool insert(const E& elem)
    {
        return recordChange(_elems.insert(elem).second);
    }

    /** Erases the element that equals `elem`, or returns false. Iterators to other elements remain valid. */
    bool erase(const E& elem)
    {
        return recordChange(_elems.erase(elem) != 0);
    }

    /** Erases all elements. */
    void clear()
    {
        recordChange(!_elems.empty());
        _elems.clear();
    }

    /** Returns the number of elements. */
    std::size_t size() const
    {
        return _elems.size();
    }
    /** Returns the number of modifications so far; wraps around on overflow. */
    std::size_t changes() const
    {
        return _changes;
    }

    /** Returns an iterator to the first element, or end(). The order is unspecified. */
    Place begin() const
    {
        return _elems.begin();
    }
    /** Returns the iterator past the last element. */
    Place end() const
    {
        return _elems.end();
    }

private:
    bool recordChange(bool changed)
    {
        _changes += changed ? 1 : 0;
        return changed;
    }

    Elems _elems;
    std::size_t _changes = 0;
};

#endif
