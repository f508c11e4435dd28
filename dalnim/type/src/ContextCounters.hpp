#ifndef DALNIM_TYPE_SRC_CONTEXTCOUNTERS_HPP
#define DALNIM_TYPE_SRC_CONTEXTCOUNTERS_HPP

#include <dalnim/type/ContextStatistics.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace com::kor::dal::nim::type {

/**
 * The counters of contexts. Threads use one of several sets, selected by their IDs, of which no two share a
 * cache line. Nothing is counted until ContextStatistics::enable() is called. Any thread may use them at any
 * time.
 */
class ContextCounters
{
public:
    /**
     * Increments release and loads acquire: a thread that finds an event counted also finds the counts of the
     * events that happened before it.
     */
    typedef std::atomic<std::uint64_t> Counter;

    static constexpr std::size_t CACHE_LINE = 64;

    /** The counters of the threads with certain IDs. */
    struct alignas(CACHE_LINE) Stripe
    {
        Counter made;
        Counter ended;
        Counter duplicated;
        Counter attached;
    };

    ContextCounters() = delete;

    /** Counts one event, if events are counted. */
    static void count(Counter Stripe::*counter) noexcept
    {
        if (__builtin_expect(isEnabled.load(std::memory_order_relaxed), false)) {
            increase(counter);
        }
    }
    static ContextStatistics read() noexcept;

    /** Relaxed: the value is all that is passed on. */
    static inline std::atomic<bool> isEnabled{false};

private:
    static constexpr unsigned int STRIPES = 16;

    __attribute__((noinline, cold)) static void increase(Counter Stripe::*counter) noexcept;
    static std::uint64_t sum(Counter Stripe::*counter) noexcept;

    static Stripe stripes[STRIPES];
};

}

#endif
