#ifndef DALNIM_XML_SRC_ATTRIBUTENAMES_HPP
#define DALNIM_XML_SRC_ATTRIBUTENAMES_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace com::kor::dal::nim::xml {

/**
 * Tells whether an element already has an attribute of a name, in time that does not grow with the
 * number of attributes, whatever the names are.
 *
 * The names themselves stand in the parser's array. Few are compared one by one, and only when one of
 * them looks alike; many are kept in a hash table.
 */
class AttributeNames
{
public:
    /** For a new element. */
    void clear() noexcept
    {
        seenKinds = 0;
    }

    /**
     * Notes a name. May throw `std::bad_alloc`.
     * @param attributes, entries the names so far, at the even places
     * @return false when the name is among them
     */
    bool add(const char* name, std::size_t length, const char* const* attributes, std::size_t entries)
    {
        if (entries >= 2 * MAX_LISTED) {
            return addToTable(name, length, attributes, entries / 2);
        }
        const std::uint64_t kind = kindOf(name, length);
        const bool isNewKind = (seenKinds & kind) == 0;
        seenKinds |= kind;
        return isNewKind || !isListed(name, attributes, entries);
    }

private:
    /** More names than this are kept in the table. */
    static constexpr std::size_t MAX_LISTED = 16;

    struct Slot
    {
        std::uint64_t hash;
        const char* name;
    };

    static std::uint64_t kindOf(const char* name, std::size_t length) noexcept
    {
        const auto first = static_cast<unsigned char>(name[0]);
        const auto last = static_cast<unsigned char>(name[length - 1]);
        return std::uint64_t{1} << ((first + 5U * last + 3U * length) % 64);
    }

    bool addToTable(const char* name, std::size_t length, const char* const* attributes, std::size_t names);
    bool isListed(const char* name, const char* const* attributes, std::size_t entries) const noexcept;
    void fill(const char* const* attributes, std::size_t names);
    bool insert(const char* name, std::uint64_t hash);
    void grow();

    /** A bit for each kind of name that the element has; names of different kinds differ. */
    std::uint64_t seenKinds = 0;
    /** Open addressing; the size is a power of two, and at most half of it is in use. */
    std::vector<Slot> slots;
};

}

#endif
