#ifndef DALNIM_LOG_SRC_APPENDFILE_HPP
#define DALNIM_LOG_SRC_APPENDFILE_HPP

#include <dalnim/String.hpp>

#include <cstddef>
#include <fstream>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * A file stream that writes at the end of a file, whoever else may write there. It has no buffer: what
 * is inserted is with the kernel, or refused, when the call returns.
 */
class AppendFile : public std::ofstream
{
public:
    AppendFile() = default;

    /**
     * Opens the closed stream on a file, which is created when it is missing and never truncated. The
     * descriptor is not inherited by the programs that the process starts. On failure the stream's
     * failbit is set and `errno` tells the cause.
     */
    void openAtEnd(const String& path);

    /**
     * Writes a text by one call of the kernel, as if it were inserted and flushed. False when the
     * stream is not good, or not any more.
     */
    bool append(std::string_view text);

    /**
     * Whether the end of the last write stood at `size` or behind it. As long as all bytes of the file
     * were its own, the stream keeps count, and asks the kernel only when the count has come that far,
     * or has gone on by a thousandth of `size`: what others append is seen that late the first time,
     * and at each call from then on.
     */
    bool hasReached(std::size_t size);

    /** Others have the stream, and may insert into it: its own count of the bytes is off. */
    void share() noexcept
    {
        exclusive = false;
    }

private:
    int descriptor();

    /** Whether `position` was asked for since the file was opened. */
    bool positionKnown = false;
    std::size_t position = 0;
    /** By append(), since then. */
    std::size_t appended = 0;
    bool exclusive = true;
};

}

#endif
