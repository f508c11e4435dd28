#ifndef DALNIM_TOOLS_SUPPORT_INCLUDES_HPP
#define DALNIM_TOOLS_SUPPORT_INCLUDES_HPP

#include <string>
#include <vector>

namespace nimtools {

/**
 * Returns the files that a properties file includes, directly or indirectly, each once, in the order in which
 * they are loaded. Every line that looks like an include counts, even if the load stops at an error before
 * it.
 * @param path the path of the file, for messages; its directory is the base of its includes
 * @param text the content of the file
 * @throws Failure if an included file is a FIFO, whose writer the load would wait for
 */
std::vector<std::string> includedFiles(const std::string& path, const std::string& text);

}

#endif
