#ifndef DALNIM_LOG_SRC_THREADHEADERCACHE_HPP
#define DALNIM_LOG_SRC_THREADHEADERCACHE_HPP

#include <dalnim/log/Common.hpp>

namespace com::kor::dal::nim::log {

class Header;
struct SourcePosition;

/**
 * The cached record of each thread. Constructing and destroying a string stream costs more than everything
 * else in a record except its write, so a statement acquires this one, and releases it reset.
 */
class ThreadHeaderCache
{
public:
    ThreadHeaderCache() = delete;

    /**
     * Starts a record in the calling thread's cached header. Returns null if it is in use (by an enclosing
     * statement, for example), if the thread has already run its exit hook, or if the hook could not be
     * registered.
     */
    static Header* acquire(Severity severity, const SourcePosition& position);

    /** Resets and releases a header that acquire() returned. Returns false if `header` is another one. */
    static bool release(Header& header) noexcept;
};

}

#endif
