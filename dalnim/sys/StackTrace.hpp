#ifndef DALNIM_SYS_STACKTRACE_HPP
#define DALNIM_SYS_STACKTRACE_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <iosfwd>

namespace com::kor::dal::nim::sys {

/**
 * A snapshot of the stack of StackTracks of the thread that constructs it, as labels, innermost first.
 *
 * Thread safety: any thread may read a constructed object, except that the first toString() of an object
 * writes a cache and must not run concurrently with another.
 */
class DALNIM_API StackTrace
{
public:
    static constexpr const char CLASS_NAME[] = "StackTrace";

    /** Captures the tracks of the calling thread. */
    StackTrace();
    /** Copies the labels, but not the cached string. */
    StackTrace(const StackTrace& ref);
    /** Copies the labels. Compatibility: a string that toString() has already cached remains unchanged. */
    StackTrace& operator=(const StackTrace& ref);
    virtual ~StackTrace();

    /** Returns true if there was no track. */
    bool empty() const noexcept;
    /** Returns one label per frame, innermost first. */
    const StringVector& trace() const noexcept;

    /**
     * Writes one line per frame and flushes the stream. Does nothing if the trace is empty.
     * @param indent    written at the start of each line
     * @param numbered  whether to write "[n]" and a tab in front of each label; n is 0 for the outermost
     *                  frame
     * @return `os`
     */
    std::ostream& displayFormatted(std::ostream& os, const String& indent, bool numbered) const;

    /** Returns the frames as lines without indent and numbers. Cached by the first call. */
    const String& toString() const;

private:
    /** The labels, innermost first. */
    StringVector data;
    /** The result of toString(), or empty. */
    mutable String str_cache;
};

/** Writes the trace as numbered lines, indented by two spaces. */
DALNIM_API std::ostream& operator<<(std::ostream& os, const StackTrace& trace);

}

#endif
