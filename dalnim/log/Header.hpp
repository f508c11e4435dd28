#ifndef DALNIM_LOG_HEADER_HPP
#define DALNIM_LOG_HEADER_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>
#include <qv/pmx/api.h>

#include <exception>
#include <sstream>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * One record in the making: the stream that a log statement fills, and where and when it stood.
 * It is the statement's for as long as that runs, and is used on one thread. The time is that of the
 * statement, not that of the writing.
 */
class DALNIM_API Header : public std::ostringstream
{
public:
    static constexpr const char CLASS_NAME[] = "Header";

    /**
     * @param file is kept as a pointer: a literal that outlives the record
     *
     * An insertion into the stream that misses memory sets its badbit, as in every stream; a logger
     * refuses such a record with `std::bad_alloc` instead of writing a part of it.
     */
    Header(Severity severity, const char* file, unsigned int line);
    ~Header() override;

    Header(const Header&) = delete;
    Header& operator=(const Header&) = delete;

    /** The stream for the text. */
    std::ostream& os() noexcept
    {
        return *this;
    }

    /** The name of the record's severity. Throws `std::out_of_range` for a number that is none. */
    String getSeverityName() const;
    /** The severity of the statement. */
    Severity getSeverityId() const noexcept
    {
        return severity;
    }
    /** The source file of the statement: the pointer that the record was made with. */
    const char* getFile() const noexcept
    {
        return file;
    }
    /** The source line of the statement. */
    unsigned int getLine() const noexcept
    {
        return line;
    }
    /** The kernel's number of the thread of the statement. */
    ThreadID_t getThread() const noexcept
    {
        return thread;
    }
    /** Seconds since the epoch. */
    Time_t getWhen() const noexcept
    {
        return when;
    }

    /**
     * Writes `msg`, the exception's number if it is a sys::system_error, and its text. The severity
     * chooses the detail: DEBUG adds the type's name and the stack trace, INFO neither, every other
     * severity the stack trace.
     */
    std::ostream& insertTrapped(const std::exception& exc, const char* msg);
    /** The same. */
    std::ostream& insertTrapped(const std::exception& exc, const String& msg);

private:
    friend class Log;
    friend class Module;
    friend class SpareHeaders;
    friend class ThreadHeader;
    friend class Write;

    /** What str() copies, where it stands: until the next insertion. */
    std::string_view text() const noexcept;

    /** Throws std::bad_alloc where memory has run out within the text, which would go out cut. */
    void requireWhole() const
    {
        if (bad()) {
            throwIfCut();
        }
    }
    void throwIfCut() const;

    /** Makes it an empty record again; false when only a new one would be as good as new. */
    bool restore() noexcept;
    /** Begins the next record in a restored one; false if a new stream would have another locale. */
    bool renew(Severity severity, const char* file, unsigned int line);

    // Constant for the length of a statement; only renew() changes them.
    Severity severity;
    const char* file;
    unsigned int line;
    ThreadID_t thread;
    Time_t when;
};

}

#endif
