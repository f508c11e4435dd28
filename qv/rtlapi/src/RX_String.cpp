#include <qv/rtlapi/RX_String.hpp>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string_view>

// The terminator of the empty string is where the characters of other representations start.
static_assert(offsetof(RX_String::EmptyRep, terminator) == sizeof(RX_String::Rep), "no gap");
static_assert(sizeof(RX_String) == sizeof(void*), "one pointer wide");

// Both are initialised at compile time, so static objects elsewhere may use them in their constructors.
RX_String::EmptyRep RX_String::_empty = {{0, 0, 1}, '\0'};
const RX_String RX_String::none;

RX_String::RX_String(const char* text, std::size_t length) : RX_String()
{
    if (text == nullptr) {
        return;
    }
    const std::size_t count = length == NPOS ? std::strlen(text) : length;
    if (count != 0) {
        append(text, count);
    }
}

RX_String& RX_String::operator+=(const RX_String& other)
{
    if (length() == 0) {
        return *this = other;
    }
    if (other.length() != 0) {
        // Keeps the characters alive if `other` is this string.
        const RX_String source(other);
        append(source.data(), source.length());
    }
    return *this;
}

RX_String& RX_String::toLower()
{
    return mapCharacters([](int c) { return std::tolower(c); });
}

RX_String& RX_String::toUpper()
{
    return mapCharacters([](int c) { return std::toupper(c); });
}

RX_String::Rep* RX_String::allocate(std::size_t capacity)
{
    if (capacity > NPOS / 2) {
        throw std::length_error("RX_String");
    }
    return new (::operator new(sizeof(Rep) + capacity + 1)) Rep{0, capacity, 1};
}

void RX_String::append(const char* text, std::size_t count)
{
    const std::size_t oldLength = length();
    if (count > NPOS / 2 - oldLength) {
        throw std::length_error("RX_String");
    }
    makeWritable(oldLength + count);
    std::memcpy(_rep->characters() + oldLength, text, count);
    _rep->length = oldLength + count;
    _rep->characters()[_rep->length] = '\0';
}

/** Ensures that the representation is not shared and has a capacity of at least `capacity` bytes. */
void RX_String::makeWritable(std::size_t capacity)
{
    // Acquire: former owners read the characters before they decremented the count with release order.
    const bool isOwn = _rep != &_empty.rep && __atomic_load_n(&_rep->ref_count, __ATOMIC_ACQUIRE) == 1;
    if (isOwn && capacity <= _rep->capacity) {
        return;
    }
    // Grows geometrically, by at least half, so that repeated appending takes amortised constant time per
    // byte.
    const std::size_t grown = length() + length() / 2;
    Rep* const copy = allocate(capacity > length() ? std::max(capacity, grown) : capacity);
    copy->length = length();
    std::memcpy(copy->characters(), data(), length() + 1);
    deref();
    _rep = copy;
}

template <class Mapping>
RX_String& RX_String::mapCharacters(Mapping mapping)
{
    const auto map = [mapping](char c) { return static_cast<char>(mapping(static_cast<unsigned char>(c))); };

    // If nothing changes, the representation remains shared.
    const char* const end = data() + length();
    const char* const first = std::find_if(data(), end, [map](char c) { return map(c) != c; });
    if (first != end) {
        const std::size_t offset = static_cast<std::size_t>(first - data());
        makeWritable(length());
        char* const characters = _rep->characters();
        std::transform(characters + offset, characters + length(), characters + offset, map);
    }
    return *this;
}

bool operator==(const RX_String& left, const RX_String& right) noexcept
{
    return left.getRep() == right.getRep()
           || (left.length() == right.length() && std::memcmp(left.data(), right.data(), left.length()) == 0);
}

bool operator==(const RX_String& left, const char* right) noexcept
{
    return std::string_view(left.data(), left.length()) == right;
}

std::ostream& operator<<(std::ostream& os, const RX_String& string)
{
    return os << std::string_view(string.data(), string.length());
}
