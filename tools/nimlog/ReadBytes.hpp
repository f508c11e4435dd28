#ifndef DALNIM_TOOLS_NIMLOG_READBYTES_HPP
#define DALNIM_TOOLS_NIMLOG_READBYTES_HPP

#include <string>
#include <string_view>
#include <sys/types.h>

namespace nimlog {

/**
 * The first and the last bytes that were read from a file. If the file no longer contains them at the same
 * offsets, it was truncated and refilled, even if it is longer than before.
 */
class ReadBytes
{
public:
    /** Starts with another file, or at the beginning of the same one. */
    void clear();
    /** Adds bytes that were read, in order. */
    void add(std::string_view bytes);
    /**
     * Returns true if the file still contains the bytes. `position` is the offset up to which it was read.
     */
    bool matchFile(int descriptor, off_t position) const;

private:
    static constexpr std::size_t KEPT_BYTES = 1024;

    std::string first;
    std::string last;
};

}

#endif
