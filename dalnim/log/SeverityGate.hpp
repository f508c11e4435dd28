#ifndef DALNIM_LOG_SEVERITYGATE_HPP
#define DALNIM_LOG_SEVERITYGATE_HPP

#include <dalnim/log/Common.hpp>

#include <atomic>

namespace com::kor::dal::nim::log {

/**
 * Which severities a logger takes: a mask with a bit for each, or, while that is empty, a threshold.
 *
 * Both stand in one atomic word, so that every log statement gets its answer without a lock, and
 * each answer is one that held at some moment. Writers are serialised by the logger.
 */
class SeverityGate
{
public:
    explicit SeverityGate(Severity minimum) noexcept : word(pack(0, minimum)) {}

    void set(unsigned int newMask, Severity newMinimum) noexcept
    {
        word.store(pack(newMask, newMinimum), std::memory_order_relaxed);
    }

    /** Bits 1 to 7, one a severity; 0 while the threshold decides. */
    unsigned int mask() const noexcept
    {
        return word.load(std::memory_order_relaxed) & MASK_BITS;
    }
    /** The threshold, or the lowest severity of the mask. */
    Severity minimum() const noexcept
    {
        return static_cast<Severity>(word.load(std::memory_order_relaxed) >> MINIMUM_SHIFT);
    }

    bool passes(Severity severity) const noexcept
    {
        const unsigned int state = word.load(std::memory_order_relaxed);
        if ((state & MASK_BITS) != 0) {
            return ((state & MASK_BITS) >> (static_cast<unsigned int>(severity) & 31U) & 1U) != 0;
        }
        return severity >= static_cast<Severity>(state >> MINIMUM_SHIFT);
    }

private:
    static constexpr unsigned int MASK_BITS = 0xFF;
    static constexpr unsigned int MINIMUM_SHIFT = 8;

    static unsigned int pack(unsigned int mask, Severity minimum) noexcept
    {
        return mask | static_cast<unsigned int>(minimum) << MINIMUM_SHIFT;
    }

    std::atomic<unsigned int> word;
};

}

#endif
