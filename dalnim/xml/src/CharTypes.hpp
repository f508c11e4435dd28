#ifndef DALNIM_XML_SRC_CHARTYPES_HPP
#define DALNIM_XML_SRC_CHARTYPES_HPP

#include <atomic>

namespace com::kor::dal::nim::xml {

enum CharType : unsigned char { CHAR_SPACE = 1, CHAR_NAME_START = 2, CHAR_NAME = 4 };

/**
 * Character classes of each byte, a combination of CharType bits. Written only by fillCharTypes(). The
 * elements are atomic, because several threads may fill the table concurrently, all with the same bits.
 * Relaxed: ipdsParseInit() acquires the table before any parser reads it.
 */
extern std::atomic<unsigned char> aChTypes[256];

/** Fills `aChTypes`. Any thread may call it, any number of times. */
void fillCharTypes();

inline bool isA(CharType type, char c) noexcept
{
    return (aChTypes[static_cast<unsigned char>(c)].load(std::memory_order_relaxed) & type) != 0;
}

/** Returns the position of the first byte that is not of the type. Stops at a NUL, which has no class. */
inline char* skip(CharType type, char* p) noexcept
{
    // Unrolled by four: names are short, and repeat from element to element, so the branches predict well.
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
