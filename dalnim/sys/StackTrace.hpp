#ifndef DALNIM_SYS_STACKTRACE_HPP
#define DALNIM_SYS_STACKTRACE_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <iosfwd>

namespace com::kor::dal::nim::sys {

/**
 * A snapshot of the open tracks of the thread that made it, as text, innermost first.
 *
 * Once complete it may be read by any thread, except that the first toString() of an object writes
 * a cache and must not run concurrently with another.
 */
class DALNIM_API StackTrace
{
public:
    static constexpr const char CLASS_NAME[] = "StackTrace";

    /** Captures the calling thread's tracks. */
    StackTrace();
    /** Copies the labels; the text form starts anew. */
    StackTrace(const StackTrace& ref);
    /** Copies the labels. A text form that this object has made already stays as it was. */
    StackTrace& operator=(const StackTrace& ref);
    virtual ~StackTrace();

    /** Whether no track was open. */
    bool empty() const noexcept;
    /** One label a frame, innermost first. */
    const StringVector& trace() const noexcept;

    /**
     * Writes one line a frame, and flushes. An empty trace leaves the stream untouched.
     * @param indent   stands before each line
     * @param numbered puts "[n]" and a tab before each label, counting down to 0 at the outermost
     */
    std::ostream& displayFormatted(std::ostream& os, const String& indent, bool numbered) const;

    /** The frames without indent and numbers, made at the first call. */
    const String& toString() const;

private:
    StringVector data;
    mutable String str_cache;
};

/** Writes the trace with two blanks of indent and numbered lines. */
DALNIM_API std::ostream& operator<<(std::ostream& os, const StackTrace& trace);

}

#endif
