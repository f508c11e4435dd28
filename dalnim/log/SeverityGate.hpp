#ifndef DALNIM_LOG_SEVERITYGATE_HPP
#define DALNIM_LOG_SEVERITYGATE_HPP

#include <dalnim/log/Common.hpp>

#include <atomic>

namespace com::kor::dal::nim::log {

/**
 * The severity check of a logger: a mask with a bit for each enabled severity or, if that is empty, a
 * threshold.
 *
 * Both are in one atomic word, together with the set of enabled severities, so that a log statement checks
 * its severity without a lock, and never sees a mixture of two settings. The logger serialises the writers.
 */
class SeverityGate
{
public:
    /** Enables the severities from `minimum` up, without a mask. */
    explicit SeverityGate(Severity minimum) noexcept : word(pack(0, minimum)) {}
    /** Enables all values, for a logger with a severity check of its own. */
    constexpr SeverityGate() noexcept : word(OPEN) {}

    /** Replaces mask and threshold in one step. With a mask, `newMinimum` is its lowest severity. */
    void set(unsigned int newMask, Severity newMinimum) noexcept
    {
        word.store(pack(newMask, newMinimum), std::memory_order_relaxed);
    }

    /** Returns bits 1 to 7, one for each severity; 0 if the threshold applies. */
    unsigned int mask() const noexcept
    {
        return word.load(std::memory_order_relaxed) >> MASK_SHIFT & SEVERITY_BITS;
    }
    /** Returns the threshold, or the lowest severity of the mask. */
    Severity minimum() const noexcept
    {
        return static_cast<Severity>(word.load(std::memory_order_relaxed) >> MINIMUM_SHIFT);
    }

    /** Returns true if the severity is enabled. */
    bool passes(Severity severity) const noexcept
    {
        const auto bit = static_cast<unsigned int>(severity);
        const unsigned int state = word.load(std::memory_order_relaxed);
        return bit < Severity_COUNT ? (state >> bit & 1U) != 0 : passesBeyond(severity, state);
    }

private:
    static constexpr unsigned int SEVERITY_BITS = 0xFF;
    static constexpr unsigned int MASK_SHIFT = 8;
    static constexpr unsigned int MINIMUM_SHIFT = 16;
    static constexpr unsigned int OPEN = ~0U;

    /** Returns passes() of a value that is not a severity. */
    static bool passesBeyond(Severity severity, unsigned int state) noexcept
    {
        if (state == OPEN) {
            return true;
        }
        const unsigned int mask = state >> MASK_SHIFT & SEVERITY_BITS;
        return mask != 0 ? (mask >> (static_cast<unsigned int>(severity) & 31U) & 1U) != 0
                         : severity >= static_cast<Severity>(state >> MINIMUM_SHIFT);
    }
    static unsigned int pack(unsigned int mask, Severity minimum) noexcept
    {
        const auto lowest = static_cast<unsigned int>(minimum);
        const unsigned int passing = mask != 0 ? mask : SEVERITY_BITS << lowest & SEVERITY_BITS;
        return passing | mask << MASK_SHIFT | lowest << MINIMUM_SHIFT;
    }

    /** Relaxed: the word is all that is passed on. */
    std::atomic<unsigned int> word;
};

}

#endif
