#ifndef DALNIM_LOG_SRC_RECORDOPTIONS_HPP
#define DALNIM_LOG_SRC_RECORDOPTIONS_HPP

#include <atomic>

namespace com::kor::dal::nim::log {

/**
 * The steps of a record that most programs do not ask for, as bits of one word of the process: a record of a
 * program without any of them executes one test for all. Any thread may use it at any time.
 */
class RecordOptions
{
public:
    enum Option : unsigned int {
        /** Some logger has, or has had, limits of modules. */
        LIMITS = 1,
        /** Lines on standard error have a priority. */
        PRIORITIES = 2,
        /** Loggers count their records. */
        STATISTICS = 4
    };

    RecordOptions() = delete;

    /** Returns true if any option is on. */
    static bool any() noexcept
    {
        return word.load(std::memory_order_relaxed) != 0;
    }
    static bool has(Option option) noexcept
    {
        return (word.load(std::memory_order_relaxed) & option) != 0;
    }
    /** Returns the previous setting. */
    static bool set(Option option, bool on) noexcept
    {
        const unsigned int before = on ? word.fetch_or(option, std::memory_order_relaxed)
                                       : word.fetch_and(~option, std::memory_order_relaxed);
        return (before & option) != 0;
    }

private:
    /** Relaxed: the bits are all that is passed on. Limits are read under the lock of the logger. */
    static inline std::atomic<unsigned int> word{0};
};

}

#endif
