#ifndef DALNIM_LOG_SRC_STREAMOUTPUT_HPP
#define DALNIM_LOG_SRC_STREAMOUTPUT_HPP

#include <cstddef>
#include <ostream>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * Writes to streams that the log does not own.
 *
 * A standard stream (std::cerr, std::clog, std::cout) is the last resort of a record, so its state must not
 * decide: one failed insertion by anyone would silence it permanently. The text is therefore written to the
 * descriptor behind the stream, whatever the state of the stream, and the state is left unchanged. A stream
 * whose buffer the program has replaced (other than by sync_with_stdio()) is written like any other stream.
 *
 * A standard descriptor that was closed when the library was loaded counts as closed until trust() is
 * called: a file that is given the number afterwards must not receive the log.
 *
 * Any thread may call any operation. Writes to one standard descriptor exclude each other.
 */
class StreamOutput
{
public:
    StreamOutput() = delete;

    /**
     * Writes all of `text` and flushes it. Returns false, with the cause in `errno`, if the stream or the
     * descriptor rejects it; an exception that the stream throws counts as a rejection. An interrupted write
     * is repeated. A full non-blocking descriptor is waited for, one second at most.
     */
    static bool write(std::ostream& stream, std::string_view text);

    /**
     * Writes a line that its own output has rejected to standard error, after an error message, where it
     * survives. Needs no memory, if there is none.
     */
    static void writeToFallback(std::string_view line);

    /** Returns true if the stream is written to by its descriptor, whatever its state. */
    static bool isDirect(const std::ostream& stream);

    /** Returns the position of the output in bytes, or the largest number if it has none. */
    static std::size_t position(std::ostream& stream);

    /** For a setting that names a standard stream: checks again whether its descriptor is open. */
    static void trust(const std::ostream& stream) noexcept;
};

}

#endif
