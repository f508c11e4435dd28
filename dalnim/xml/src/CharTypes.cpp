#include <dalnim/dalbase.hpp>

#include "CharTypes.hpp"

#include <cctype>

namespace com::kor::dal::nim::xml {

std::atomic<unsigned char> aChTypes[256];

void fillCharTypes()
{
    for (int c = 0; c < 256; ++c) {
        unsigned char types = 0;
        if (std::isspace(c) != 0) {
            types |= CHAR_SPACE;
        }
        if (std::isalpha(c) != 0 || c == '_' || c == ':' || c == '?' || c == '!') {
            types |= CHAR_NAME_START | CHAR_NAME;
        }
        if ((c >= '0' && c <= '9') || c == '-' || c == '.') {
            types |= CHAR_NAME;
        }
        aChTypes[c].fetch_or(types, std::memory_order_relaxed);
    }
}

}
