#include <qv/pmx/src/perturb.hpp>

#ifdef DALNIM_PERTURB

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<std::uint64_t> threads{0};

/** State of the thread's random generator; 0 before its first use. */
thread_local std::uint64_t state = 0;

/** Returns the initial state: different for each thread, from the seed and the order of first uses. */
std::uint64_t begin() noexcept
{
    const char* const seed = std::getenv("DALNIM_PERTURB_SEED");
    return (seed != nullptr ? std::strtoull(seed, nullptr, 10) : 0) * 0x9E3779B97F4A7C15U + ++threads;
}

std::uint64_t next() noexcept
{
    if (state == 0) {
        state = begin();
    }
    // xorshift64*
    state ^= state >> 12;
    state ^= state << 25;
    state ^= state >> 27;
    return state * 0x2545F4914F6CDD1DU >> 32;
}

}

void qv::perturb() noexcept
{
    constexpr std::uint64_t YIELD_ONCE_IN = 8;
    constexpr std::uint64_t SLEEP_ONCE_IN = 64;
    constexpr std::uint64_t MAX_SLEEP_NS = 50000;
    const std::uint64_t number = next();
    if (number % SLEEP_ONCE_IN == 0) {
        const timespec nap = {0, static_cast<long>(next() % MAX_SLEEP_NS)};
        // The system call, since nanosleep() is a cancellation point and the perturbed code has none here.
        syscall(SYS_nanosleep, &nap, nullptr);
    } else if (number % YIELD_ONCE_IN == 0) {
        sched_yield();
    }
}

#endif
