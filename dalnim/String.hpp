#ifndef DALNIM_STRING_HPP
#define DALNIM_STRING_HPP

#include <string>
#include <vector>

namespace com::kor::dal::nim {

/** The string type of the interface: bytes without a fixed encoding. */
typedef std::string String;

/** A list of strings. */
typedef std::vector<String> StringVector;

}

#endif
