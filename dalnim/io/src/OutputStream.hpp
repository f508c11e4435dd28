#ifndef DALNIM_IO_SRC_OUTPUTSTREAM_HPP
#define DALNIM_IO_SRC_OUTPUTSTREAM_HPP

#include <dalnim/sys/SysError.hpp>

#include <ostream>
#include <string_view>

namespace com::kor::dal::nim::io {

/** Throws sys::system_error with the number in `errno` if `os` has failed. */
inline void throwIfFailed(const std::ostream& os)
{
    if (os.fail()) {
        throw sys::system_error();
    }
}

/** Writes `text`, unformatted. Throws sys::system_error if `os` fails; an empty text is not written. */
inline void writeText(std::ostream& os, std::string_view text)
{
    if (text.empty()) {
        return;
    }
    os.write(text.data(), static_cast<std::streamsize>(text.size()));
    throwIfFailed(os);
}

/**
 * Flushes `os` and returns it. Throws sys::system_error if the flush fails. A stream that had failed before
 * is returned as it is: the caller had nothing to write, or it would have thrown already.
 */
inline std::ostream& flushText(std::ostream& os)
{
    const bool had_failed = os.fail();
    os.flush();
    if (!had_failed && os.bad()) {
        throw sys::system_error();
    }
    return os;
}

}

#endif
