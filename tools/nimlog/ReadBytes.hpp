#ifndef DALNIM_TOOLS_NIMLOG_READBYTES_HPP
#define DALNIM_TOOLS_NIMLOG_READBYTES_HPP

#include <string>
#include <string_view>
#include <sys/types.h>

namespace nimlog {

/**
 * The first and the last bytes that were read from a file. If the file no longer contains them at their
 * places, it was truncated and refilled, however long it is by now.
 */
class ReadBytes
{
public:
    /** Starts with another file, or with the same one from its beginning. */
    void clear();
    /** Adds bytes that were read, in order. */
    void add(std::string_view bytes);
    /** Whether the file still contains the bytes; `position` is the end of those that were read. */
    bool areIn(int descriptor, off_t position) const;

private:
    static constexpr std::size_t KEPT = 1024;

    std::string first;
    std::string last;
};

}

#endif
