#ifndef DALNIM_TOOLS_SUPPORT_INPUT_HPP
#define DALNIM_TOOLS_SUPPORT_INPUT_HPP

#include <string>

namespace nimtools {

/** The name that stands for standard input. */
extern const char STANDARD_INPUT[];

/** All bytes of a file, or of standard input. Throws Failure. */
std::string readAll(const std::string& path);

}

#endif
