#ifndef DALNIM_LOG_SRC_STREAMOUTPUT_HPP
#define DALNIM_LOG_SRC_STREAMOUTPUT_HPP

#include <cstddef>
#include <ostream>
#include <string_view>

namespace com::kor::dal::nim::log {

class LineBuffer;

/**
 * Writes to streams that the log does not own.
 *
 * A standard stream (std::cerr, std::clog, std::cout) is the last resort of a record, so its state is
 * ignored: otherwise a single failed insertion would silence it permanently. The text is written to the
 * descriptor of the stream, and the state of the stream is unchanged. A stream whose buffer the program has
 * replaced (other than by sync_with_stdio()) is written like any other stream.
 *
 * A standard descriptor that was closed when the library was loaded counts as closed until
 * recheckDescriptor() is called: a file that is opened with its number afterwards must not receive the log.
 *
 * Any thread may call any operation. Writes to one standard descriptor are serialised.
 */
class StreamOutput
{
public:
    StreamOutput() = delete;

    /**
     * Writes all of `text` and flushes it. Returns false, with the cause in `errno`, if the stream or the
     * descriptor rejects it; an exception that the stream throws counts as a rejection. An interrupted write
     * is repeated. A full non-blocking descriptor is waited for, one second at most.
     *
     * Lines on standard error have the prefix of RecordPriority. If memory runs out for it, the text is
     * written without prefix.
     */
    static bool write(std::ostream& stream, std::string_view text);
    /** The same without the prefix, for a part of a line. */
    static bool writePart(std::ostream& stream, std::string_view text);

    /**
     * Returns the text that write() would write to a stream.
     * @param lines  empty; its memory contains the result if that has prefixes
     */
    static std::string_view prefixed(const std::ostream& stream, std::string_view text, LineBuffer& lines);

    /**
     * Writes a line that its own output has rejected to standard error, after an error message. Works also if
     * memory runs out.
     */
    static void writeToFallback(std::string_view line);

    /** Returns true if write() uses the descriptor of the stream, whatever the state of the stream. */
    static bool isDirect(const std::ostream& stream);

    /** Returns the position of the output in bytes, or the largest number if it has none. */
    static std::size_t position(std::ostream& stream);

    /** Checks again whether the descriptor of a standard stream is open. For a setting that selects one. */
    static void recheckDescriptor(const std::ostream& stream) noexcept;

private:
    /** Calls write() for a process whose lines on standard error have a priority. */
    __attribute__((cold, noinline)) static bool writeWithPriority(std::ostream& stream,
                                                                  std::string_view text);
};

}

#endif
