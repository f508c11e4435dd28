#ifndef DALNIM_XML_SRC_SYMBOLS_HPP
#define DALNIM_XML_SRC_SYMBOLS_HPP

namespace com::kor::dal::nim::xml {

/**
 * Replaces the symbols of a text in its place.
 * @param p   the first "&"
 * @param end the NUL of the text
 * @return 0, or -1 for an "&" that begins no symbol
 */
int expandSpecialSymbols(char* p, char* end) noexcept;

}

#endif
