#ifndef DALNIM_XML_SRC_CHARTYPES_HPP
#define DALNIM_XML_SRC_CHARTYPES_HPP

#include <atomic>

namespace com::kor::dal::nim::xml {

enum CharType : unsigned char { CHAR_SPACE = 1, CHAR_NAME_START = 2, CHAR_NAME = 4 };

/**
 * The classes of each byte. Filled by fillCharTypes() alone, which only sets bits: two threads that
 * come first fill it alike, and the atomic bytes make that no race.
 */
extern std::atomic<unsigned char> aChTypes[256];

void fillCharTypes();

inline bool isA(CharType type, char c) noexcept
{
    return (aChTypes[static_cast<unsigned char>(c)].load(std::memory_order_relaxed) & type) != 0;
}

/** The first byte from `p` that is not of the type. The NUL that ends a text is of none. */
inline char* skip(CharType type, char* p) noexcept
{
    // Four by four: names are short, and alike in the elements of a document.
    while (true) {
        if (!isA(type, p[0])) {
            return p;
        }
        if (!isA(type, p[1])) {
            return p + 1;
        }
        if (!isA(type, p[2])) {
            return p + 2;
        }
        if (!isA(type, p[3])) {
            return p + 3;
        }
        p += 4;
    }
}

}

#endif
