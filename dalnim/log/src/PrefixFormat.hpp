#ifndef DALNIM_LOG_SRC_PREFIXFORMAT_HPP
#define DALNIM_LOG_SRC_PREFIXFORMAT_HPP

#include <dalnim/log/Common.hpp>
#include <dalnim/log/TimeFormat.hpp>

#include <atomic>

namespace com::kor::dal::nim::log {

/**
 * The format of a prefix in one word, so that a record never has a mixture of two settings: the output mask,
 * whose bits can be tested in the word, and the form of the time in the bits above them.
 */
class PrefixFormat
{
public:
    PrefixFormat() = delete;

    static constexpr unsigned int pack(unsigned int mask, TimeFormat format) noexcept
    {
        return mask | format << SHIFT;
    }
    static constexpr unsigned int mask(unsigned int word) noexcept
    {
        return word & Mask_ALL;
    }
    static constexpr TimeFormat timeFormat(unsigned int word) noexcept
    {
        return static_cast<TimeFormat>(word >> SHIFT);
    }

    /** Returns true if the form of the time shows the fraction of the second. */
    static constexpr bool needsFraction(unsigned int word) noexcept
    {
        const TimeFormat format = timeFormat(word);
        return format != TimeFormat_LOCAL && format != TimeFormat_UTC && format != TimeFormat_OFFSET;
    }

    /**
     * Whether any logger of the process has ever escaped control characters or had another form of the time.
     * Otherwise a record need not look up these settings of its logger, which takes a run-time cast. Relaxed:
     * the flag is all that is passed on; each setting is an atomic value of its own.
     */
    static inline std::atomic<bool> hasOptions{false};

private:
    static constexpr unsigned int SHIFT = 16;
    static_assert(Mask_ALL < 1U << SHIFT, "the mask fits below the form of the time");
};

}

#endif
