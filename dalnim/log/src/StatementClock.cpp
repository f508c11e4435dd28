#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/StatementClock.hpp>

#include <ctime>
#include <type_traits>

namespace com::kor::dal::nim::log {

using sys::internal::ForkSafeLock;
using sys::internal::ForkSafeMutex;

namespace {

/** Bits of a fraction that contain the microseconds; the others contain the generation. */
constexpr unsigned int MICROSECOND_BITS = 20;

}

// Initialised by the compiler and the linker: static constructors of any source may log.
ForkSafeMutex StatementClock::mutex(false);
std::atomic<StatementClock::Function> StatementClock::function{&std::time};
unsigned int StatementClock::users = 0;
std::atomic<std::uint32_t> StatementClock::generation{0};

Time_t StatementClock::readFraction(Time_t* seconds) noexcept
{
    static_assert(std::is_standard_layout_v<Header::Time>, "the first member has the address of the object");
    auto& time = *reinterpret_cast<Header::Time*>(seconds);
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    time.seconds = now.tv_sec;
    // Acquires from acquire() the function that preceded the generation.
    time.fraction = std::uint64_t(generation.load(std::memory_order_acquire)) << MICROSECOND_BITS
                    | static_cast<std::uint64_t>(now.tv_nsec / 1000);
    return time.seconds;
}

unsigned int StatementClock::microseconds(const Header::Time& time) noexcept
{
    // Relaxed: a caller needs the fraction because of a format, whose release happened after the generation
    // changed.
    const bool isRead = time.fraction >> MICROSECOND_BITS == generation.load(std::memory_order_relaxed);
    return isRead ? static_cast<unsigned int>(time.fraction & ((1U << MICROSECOND_BITS) - 1)) : 0;
}

void StatementClock::acquire() noexcept
{
    const ForkSafeLock lock(mutex);
    if (users++ == 0) {
        // Relaxed: readFraction() acquires what it reads.
        function.store(&readFraction, std::memory_order_relaxed);
        // Released to readFraction(): a thread that has stored a fraction of this generation does not find an
        // older function afterwards. A record finds the generation by the format of the prefix, which
        // Write::setPrefixFormat() releases later.
        generation.fetch_add(1, std::memory_order_release);
    }
}

void StatementClock::release() noexcept
{
    const ForkSafeLock lock(mutex);
    if (--users == 0) {
        // Released to read(): a statement that calls time() does not find an older format that needs the
        // fraction. One that it finds is newer, and so is its generation.
        function.store(&std::time, std::memory_order_release);
    }
}

}
