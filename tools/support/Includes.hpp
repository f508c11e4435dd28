#ifndef DALNIM_TOOLS_SUPPORT_INCLUDES_HPP
#define DALNIM_TOOLS_SUPPORT_INCLUDES_HPP

#include <string>
#include <vector>

namespace nimtools {

/**
 * Returns the files that a properties file includes, directly or not, each once and in the order in which a
 * load reads them. Each line that looks like an include counts, also one that an error in front of it hides.
 *
 * Throws Failure if one of them is a FIFO, for whose writer the load would wait.
 *
 * @param path names the file in messages; its directory is the base of its includes
 * @param text what the file contains
 */
std::vector<std::string> includedFiles(const std::string& path, const std::string& text);

}

#endif
