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
    first.append(bytes.substr(0, KEPT_BYTES - first.size()));
    bytes.remove_prefix(bytes.size() - std::min(bytes.size(), KEPT_BYTES));
    last.erase(0, last.size() - std::min(last.size(), KEPT_BYTES - bytes.size()));
    last.append(bytes);
}

bool ReadBytes::matchFile(int descriptor, off_t position) const
{
    const auto isAt = [descriptor](std::string_view bytes, off_t begin) {
        std::array<char, KEPT_BYTES> found;
        const ssize_t count = pread(descriptor, found.data(), bytes.size(), begin);
        // If the file cannot be read, nothing indicates a change.
        return count == -1 || bytes == std::string_view(found.data(), static_cast<std::size_t>(count));
    };
    return isAt(first, 0) && isAt(last, position - static_cast<off_t>(last.size()));
}

}
