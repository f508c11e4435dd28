#ifndef DALNIM_SYS_SRC_LOADERCOUNTERS_HPP
#define DALNIM_SYS_SRC_LOADERCOUNTERS_HPP

#include <dalnim/sys/LoaderStatistics.hpp>

#include <atomic>
#include <cstdint>

namespace com::kor::dal::nim::sys {

/**
 * The counters of the dynamic loader. Any thread may use them at any time, without a lock. Relaxed: counts,
 * which order nothing else.
 */
class LoaderCounters
{
public:
    typedef std::atomic<std::uint64_t> Counter;

    LoaderCounters() = delete;

    static void increase(Counter& counter) noexcept
    {
        counter.fetch_add(1, std::memory_order_relaxed);
    }
    static LoaderStatistics read() noexcept
    {
        return {loaded.load(std::memory_order_relaxed), failedLoads.load(std::memory_order_relaxed),
                unloaded.load(std::memory_order_relaxed), failedUnloads.load(std::memory_order_relaxed)};
    }

    static inline Counter loaded{0};
    static inline Counter failedLoads{0};
    static inline Counter unloaded{0};
    static inline Counter failedUnloads{0};
};

}

#endif
