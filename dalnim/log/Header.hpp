#ifndef DALNIM_LOG_HEADER_HPP
#define DALNIM_LOG_HEADER_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>
#include <qv/pmx/api.h>

#include <cstdint>
#include <exception>
#include <locale>
#include <memory>
#include <sstream>
#include <string_view>

namespace com::kor::dal::nim::log {

class ForwardingBuffer;
class RecordBuffer;
class RecordPrefix;
struct SourcePosition;
class StreamState;

/**
 * A record: the stream that a log statement inserts its text into, with the place and time of the statement.
 * It is used on one thread. The time is that of the statement, not that of the write.
 *
 * A record that a program constructs is a string stream in every respect. A record of NIM_LOG and the other
 * statements keeps its text where the line is assembled: str() of this class returns and replaces the text at
 * any time, but the str() of std::ostringstream only returns it, and only once the record has been passed to
 * a logger that is not exactly a Write.
 */
class DALNIM_API Header : public std::ostringstream
{
public:
    static constexpr const char CLASS_NAME[] = "Header";

    /**
     * Starts a record at the present time, on the calling thread.
     *
     * If memory runs out during an insertion, the stream sets `badbit`, as any stream does. A module then
     * rejects the record with `std::bad_alloc` instead of writing a part of it.
     *
     * @param file  source file; only the pointer is stored, so the string must outlive the record
     * @throws std::bad_alloc if memory runs out
     */
    Header(Severity severity, const char* file, unsigned int line);
    ~Header() override;

    Header(const Header&) = delete;
    Header& operator=(const Header&) = delete;

    /** Returns the stream for the text: this object. */
    std::ostream& os() noexcept
    {
        return *this;
    }

    /** Returns the text. */
    String str() const;
    /** Replaces the text. The next insertion overwrites its beginning, as in any string stream. */
    void str(const String& text);

    /**
     * Returns the name of the severity.
     * @throws std::out_of_range if the severity is not one of the enumeration
     */
    String getSeverityName() const;
    /** Returns the severity of the statement. */
    Severity getSeverityId() const noexcept
    {
        return severity;
    }
    /** Returns the source file of the statement: the pointer that was passed to the constructor. */
    const char* getFile() const noexcept
    {
        return file;
    }
    /** Returns the source line of the statement. */
    unsigned int getLine() const noexcept
    {
        return line;
    }
    /** Returns the kernel's ID of the thread that ran the statement. */
    ThreadID_t getThread() const noexcept
    {
        return thread;
    }
    /** Returns the time of the statement, in seconds since the epoch. */
    Time_t getWhen() const noexcept
    {
        return when.seconds;
    }

    /**
     * Inserts `msg`, the error number if `exc` is a sys::system_error, and the exception's message. The
     * severity selects the details: DEBUG adds the name of the type and the stack trace, INFO neither, and
     * every other severity the stack trace.
     * @return os()
     */
    std::ostream& insertTrapped(const std::exception& exc, const char* msg);
    /** @copydoc insertTrapped(const std::exception&, const char*) */
    std::ostream& insertTrapped(const std::exception& exc, const String& msg);

private:
    friend class FieldWriter;
    friend class Log;
    friend class Module;
    friend class RecordLine;
    friend class RecordPrefix;
    friend class SpareHeaders;
    friend class Statement;
    friend class StatementClock;
    friend class ThreadHeaderCache;
    friend class Write;

    /** The time of a statement. */
    struct Time
    {
        /** Since the epoch. */
        Time_t seconds;
        /** For StatementClock, which reads both members. */
        std::uint64_t fraction;
    };

    /** Selects the constructor of the records that a Statement fills, and that are used again. */
    enum class Origin { STATEMENT };

    Header(Origin origin, Severity severity, const SourcePosition& position);
    /** Has the stream insert into `buffer`, and returns its state after that. */
    std::unique_ptr<StreamState> connectBuffer();

    /** Returns what str() copies. Valid until the next insertion. */
    std::string_view text() const;
    /** Returns the memory that holds the text, for the line. */
    RecordBuffer& lineBuffer() const;

    /** Throws `std::bad_alloc` if memory ran out during an insertion. */
    void throwIfTruncated() const
    {
        if (bad()) {
            throwIfTruncatedWhenBad();
        }
    }
    void throwIfTruncatedWhenBad() const;
    /** Makes the text available through std::ostringstream::str(), for loggers other than Write. */
    void copyToStringStream();

    /** Resets the record to the state of a new one. Requires Origin::STATEMENT. */
    void reset() noexcept;
    /** Starts the next record in one that was reset. */
    void start(Severity severity, const SourcePosition& position);
    void followLocale(const std::locale& global);

    // Constant during a statement; changed only by start().
    Severity severity;
    /** Whether std::ostringstream::str() returns a text that reset() must remove. */
    bool copied;
    const char* file;
    unsigned int line;
    ThreadID_t thread;
    Time when;
    /** The part of `file` after the last "/", if the statement has determined it; otherwise null. */
    std::string_view baseName;
    /** The text of a statement's record; otherwise a copy of it, made when it is logged. */
    const std::unique_ptr<RecordBuffer> buffer;
    /** Null in a statement's record. Otherwise the stream inserts through it into its own string buffer. */
    const std::unique_ptr<ForwardingBuffer> forwarder;
    /** Null unless the record is a statement's. */
    const std::unique_ptr<StreamState> initialState;
};

}

#endif
