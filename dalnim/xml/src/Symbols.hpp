#ifndef DALNIM_XML_SRC_SYMBOLS_HPP
#define DALNIM_XML_SRC_SYMBOLS_HPP

namespace com::kor::dal::nim::xml {

/**
 * Expands the entity and character references of a string in place.
 * @param p   the first "&"
 * @param end the terminating NUL
 * @return the first NUL of the expanded string, which "&#0;" can produce; null if an "&" starts no known
 * reference, and the string is then partly expanded
 */
char* expandSpecialSymbols(char* p, char* end) noexcept;

}

#endif
