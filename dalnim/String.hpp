#ifndef DALNIM_STRING_HPP
#define DALNIM_STRING_HPP

#include <string>
#include <vector>

namespace com::kor::dal::nim {

/** The string of the library's interface: bytes, with no encoding of its own. */
typedef std::string String;

/** The common list type of the library. */
typedef std::vector<String> StringVector;

}

#endif
