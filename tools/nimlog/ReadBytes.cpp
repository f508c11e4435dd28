#include "ReadBytes.hpp"

#include <algorithm>
#include <array>
#include <unistd.h>

namespace nimlog {

void ReadBytes::clear()
{
    first.clear();
    last.clear();
}

void ReadBytes::add(std::string_view bytes)
{
    first.append(bytes.substr(0, KEPT - first.size()));
    bytes.remove_prefix(bytes.size() - std::min(bytes.size(), KEPT));
    last.erase(0, last.size() - std::min(last.size(), KEPT - bytes.size()));
    last.append(bytes);
}

bool ReadBytes::areIn(int descriptor, off_t position) const
{
    const auto isAt = [descriptor](std::string_view bytes, off_t begin) {
        std::array<char, KEPT> found;
        const ssize_t count = pread(descriptor, found.data(), bytes.size(), begin);
        // A file that cannot be read now may still be the same.
        return count == -1 || bytes == std::string_view(found.data(), static_cast<std::size_t>(count));
    };
    return isAt(first, 0) && isAt(last, position - static_cast<off_t>(last.size()));
}

}
