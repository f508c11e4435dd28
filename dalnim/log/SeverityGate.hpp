#ifndef DALNIM_LOG_SEVERITYGATE_HPP
#define DALNIM_LOG_SEVERITYGATE_HPP

#include <dalnim/log/Common.hpp>

#include <atomic>

namespace com::kor::dal::nim::log {

/**
 * Which severities a logger takes: a mask with a bit for each, or, while that is empty, a threshold.
 *
 * Both stand in one atomic word, with the severities that pass, so that every log statement gets its
 * answer without a lock, and each answer is one that held at some moment. Writers are serialised by
 * the logger.
 */
class SeverityGate
{
public:
    /** A threshold, with no mask in force. */
    explicit SeverityGate(Severity minimum) noexcept : word(pack(0, minimum)) {}
    /** A gate that all values pass: that of a logger that decides otherwise. */
    constexpr SeverityGate() noexcept : word(OPEN) {}

    /** Replaces both in one step. With a mask, `newMinimum` is its lowest severity. */
    void set(unsigned int newMask, Severity newMinimum) noexcept
    {
        word.store(pack(newMask, newMinimum), std::memory_order_relaxed);
    }

    /** Bits 1 to 7, one a severity; 0 while the threshold decides. */
    unsigned int mask() const noexcept
    {
        return word.load(std::memory_order_relaxed) >> MASK_SHIFT & SEVERITY_BITS;
    }
    /** The threshold, or the lowest severity of the mask. */
    Severity minimum() const noexcept
    {
        return static_cast<Severity>(word.load(std::memory_order_relaxed) >> MINIMUM_SHIFT);
    }

    /** Whether a record of this severity is taken. */
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

    /** The same for what is no severity at all. */
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

    std::atomic<unsigned int> word;
};

}

#endif
