#include <dalnim/dalbase.hpp>

#include <dalnim/log/StatementThrottle.hpp>

#include <dalnim/log/src/CoarseClock.hpp>

#include <limits>

namespace com::kor::dal::nim::log {

bool StatementThrottle::admitAfter(std::int64_t ms, std::uint64_t& heldBack) noexcept
{
    constexpr std::int64_t NANOS_PER_MS = 1000000;
    constexpr std::int64_t NEVER = std::numeric_limits<std::int64_t>::max();
    if (ms > 0) {
        const std::int64_t now = coarseTime();
        std::int64_t current = due.load(std::memory_order_relaxed);
        std::int64_t next = 0;
        if (__builtin_mul_overflow(ms, NANOS_PER_MS, &next) || __builtin_add_overflow(now, next, &next)) {
            next = NEVER;
        }
        // Of several threads that find it due, one exchanges it.
        if (now < current || !due.compare_exchange_strong(current, next, std::memory_order_relaxed)) {
            state.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
    }
    heldBack = state.exchange(0, std::memory_order_relaxed);
    return true;
}

}
