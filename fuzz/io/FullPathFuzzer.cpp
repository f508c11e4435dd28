// Paths: fullPath() of the input must equal realpath() of its significant part.

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <dalnim/io/FsOps.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <fuzz/support/Require.hpp>

namespace {

using com::kor::dal::nim::io::fullPath;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::sys::internal::find_path_substring;

bool isOneOf(const char* set, char c)
{
    return std::string(set).find(c) != std::string::npos;
}

std::string significantPart(std::string text)
{
    for (const char* run : {" \t\n\v\f\r", "\"'"}) {
        while (!text.empty() && isOneOf(run, text.front())) {
            text.erase(0, 1);
        }
    }
    for (const char* run : {" \t\n\v\f\r", "\"'", "\\/"}) {
        while (!text.empty() && isOneOf(run, text.back())) {
            text.pop_back();
        }
    }
    return text;
}

template <class Text>
void checkFullPath(const Text& text, const std::string& part)
{
    std::string result;
    int error = 0;
    try {
        result = fullPath(text);
    } catch (const std::invalid_argument& nil) {
        require(nil.what() == std::string("Specified path is nil."));
        require(part.empty());
        return;
    } catch (const system_error& failure) {
        error = failure.error();
        require(std::string(failure.what()).find("Error resolving '") == 0);
    }
    require(!part.empty());

    if (part.find('\0') != std::string::npos) {
        require(error == ENOENT);
        return;
    }
    char resolved[PATH_MAX];
    if (realpath(part.c_str(), resolved) == nullptr) {
        require(error == errno);
        return;
    }
    std::string expected = resolved;
    std::replace(expected.begin(), expected.end(), '\\', '/');
    require(error == 0 && result == expected);
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string part = significantPart(text);
    std::size_t offset = 0;
    std::size_t length = 0;
    const bool found = size != 0 && find_path_substring(offset, length, text.c_str(), text.size());
    require(found == !part.empty());
    if (found) {
        require(text.substr(offset, length) == part);
    }

    // Names below /proc change between lookups.
    if (text.find("proc") != std::string::npos || text.find("fd") != std::string::npos) {
        return 0;
    }
    checkFullPath(text, part);
    checkFullPath(text.c_str(), significantPart(text.c_str()));
    return 0;
}
