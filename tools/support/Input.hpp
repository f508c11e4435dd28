#ifndef DALNIM_TOOLS_SUPPORT_INPUT_HPP
#define DALNIM_TOOLS_SUPPORT_INPUT_HPP

#include <string>

namespace nimtools {

/** The file name that means standard input. */
extern const char STANDARD_INPUT[];

/**
 * Returns the content of a file or of standard input.
 * @throws Failure if it cannot be read
 */
std::string readAll(const std::string& path);

}

#endif
