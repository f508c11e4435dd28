#ifndef DALNIM_XML_SRC_ATTRIBUTENAMES_HPP
#define DALNIM_XML_SRC_ATTRIBUTENAMES_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace com::kor::dal::nim::xml {

/**
 * Detects duplicate attribute names of an element, in time that does not grow with the number of attributes,
 * whatever the names are.
 *
 * The names are stored in the parser's attribute array. Up to MAX_LINEAR_SEARCH names are compared one by
 * one, and only if a Bloom filter reports a possible duplicate; beyond that, names are stored in a hash
 * table.
 */
class AttributeNames
{
public:
    /** Starts a new element. */
    void clear() noexcept
    {
        bloomFilter = 0;
    }

    /**
     * Adds a name.
     * @param attributes the attribute array, with the names added so far at even indexes
     * @param entries    number of entries in use: two for each name
     * @return false if the name was added before
     * @throws std::bad_alloc if the hash table cannot grow
     */
    bool add(const char* name, std::size_t length, const char* const* attributes, std::size_t entries)
    {
        if (entries >= 2 * MAX_LINEAR_SEARCH) {
            return addToTable(name, length, attributes, entries / 2);
        }
        const std::uint64_t bit = bloomBit(name, length);
        const bool isCertainlyNew = (bloomFilter & bit) == 0;
        bloomFilter |= bit;
        return isCertainlyNew || !isAmong(name, attributes, entries);
    }

private:
    /** Number of names up to which no hash table is used. */
    static constexpr std::size_t MAX_LINEAR_SEARCH = 16;

    struct Slot
    {
        std::uint64_t hash;
        const char* name;
    };

    static std::uint64_t bloomBit(const char* name, std::size_t length) noexcept
    {
        const auto first = static_cast<unsigned char>(name[0]);
        const auto last = static_cast<unsigned char>(name[length - 1]);
        return std::uint64_t{1} << ((first + 5U * last + 3U * length) % 64);
    }

    bool addToTable(const char* name, std::size_t length, const char* const* attributes, std::size_t names);
    bool isAmong(const char* name, const char* const* attributes, std::size_t entries) const noexcept;
    void fill(const char* const* attributes, std::size_t names);
    bool insert(const char* name, std::uint64_t hash);
    void grow();

    /** Bits of the names added so far. A name whose bit is clear is new. */
    std::uint64_t bloomFilter = 0;
    /** Hash table with open addressing. The size is a power of two; at most half of the slots are in use. */
    std::vector<Slot> slots;
};

}

#endif
