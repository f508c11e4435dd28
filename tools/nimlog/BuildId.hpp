#ifndef DALNIM_TOOLS_NIMLOG_BUILDID_HPP
#define DALNIM_TOOLS_NIMLOG_BUILDID_HPP

#include <string>

namespace nimlog {

/** Returns the build ID of an ELF file of 64 bits in hexadecimal digits, or an empty string. */
std::string buildIdOfFile(const std::string& path);

}

#endif
