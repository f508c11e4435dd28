#ifndef DALNIM_LOG_SRC_SPAREHEADERS_HPP
#define DALNIM_LOG_SRC_SPAREHEADERS_HPP

#include <dalnim/log/Common.hpp>

#include <locale>

namespace com::kor::dal::nim::log {

class Header;
struct SourcePosition;

/**
 * The records of a forked child in which the global locale cannot be looked up.
 *
 * Every construction of a stream looks up the global locale, and so does every record that reuses one, to
 * follow its changes. Unless that locale is the classic one, the C++ library takes a lock for it. If another
 * thread of the parent was inside that lock, the child would wait for it forever. So such a child takes
 * neither step: it keeps the global locale that was looked up last, before the fork, and fills records that
 * were constructed in the parent.
 *
 * A child of a process with a single thread, or with the classic locale, is not restricted.
 */
class SpareHeaders
{
public:
    SpareHeaders() = delete;

    /** Before a fork: looks up the global locale, and constructs the records if the child needs them. */
    static void prepare() noexcept;
    static void afterForkInChild() noexcept;

    /** Whether this process is a child that must not look up the global locale. */
    static bool isRestricted() noexcept
    {
        return restricted;
    }
    /** Returns the global locale that was looked up last. Requires a restricted child. */
    static const std::locale& locale() noexcept;

    /**
     * Acquires a record in a restricted child. Returns null if more statements are active than there are
     * records.
     */
    static Header* acquire(Severity severity, const SourcePosition& position);
    /** Returns false if `header` is none of these. */
    static bool release(Header& header) noexcept;

private:
    struct Spare;
    struct Stock;

    /** Null until a fork needs it. Replaced by forks, one at a time. Never destroyed at exit: see prepare().
     */
    static Stock* stock;
    /** Written by the only thread of a process. */
    static bool restricted;
};

}

#endif
