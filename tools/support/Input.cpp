#include "Input.hpp"

#include "Descriptor.hpp"
#include "Errors.hpp"

#include <array>
#include <cerrno>
#include <fcntl.h>

namespace nimtools {

const char STANDARD_INPUT[] = "-";

std::string readAll(const std::string& path)
{
    const Descriptor file(path == STANDARD_INPUT ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        throw cannotRead(path);
    }
    std::string text;
    std::array<char, 64UL * 1024> chunk;
    for (;;) {
        const ssize_t count = read(file.get(), chunk.data(), chunk.size());
        if (count > 0) {
            text.append(chunk.data(), static_cast<std::size_t>(count));
        } else if (count == 0) {
            return text;
        } else if (errno != EINTR) {
            throw cannotRead(path);
        }
    }
}

}
