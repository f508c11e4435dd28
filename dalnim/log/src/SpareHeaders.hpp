#ifndef DALNIM_LOG_SRC_SPAREHEADERS_HPP
#define DALNIM_LOG_SRC_SPAREHEADERS_HPP

#include <dalnim/log/Common.hpp>

#include <locale>

namespace com::kor::dal::nim::log {

class Header;
struct SourcePosition;

/**
 * The records of a forked child that must not read the global locale.
 *
 * Constructing a stream reads the global locale, and so does each record that reuses one, to follow its
 * changes. Unless that locale is the classic one, the C++ library acquires a lock. If another thread of the
 * parent held that lock, the child would wait for it forever. Such a child therefore does neither: it uses
 * the global locale that was read before the fork, and records that were constructed in the parent.
 *
 * A child of a process with a single thread, or with the classic locale, is not restricted.
 */
class SpareHeaders
{
public:
    SpareHeaders() = delete;

    /** Before a fork: reads the global locale, and constructs the records if the child needs them. */
    static void prepare() noexcept;
    static void afterForkInChild() noexcept;

    /** Returns true if this process is a child that must not read the global locale. */
    static bool isRestricted() noexcept
    {
        return restricted;
    }
    /** Returns the global locale that was read before the fork. Requires a restricted child. */
    static const std::locale& locale() noexcept;

    /**
     * Acquires a record in a restricted child. Returns null if more statements are active than there are
     * records.
     */
    static Header* acquire(Severity severity, const SourcePosition& position);
    /** Resets and releases a record that acquire() returned. Returns false if `header` is another one. */
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
