#ifndef NIMHOST_HISTORY_HPP
#define NIMHOST_HISTORY_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace nimhost {

/** The state of a run at one moment. */
struct Sample
{
    /** Time since the start of the run. */
    double seconds = 0;
    /** Number of records since the start of the run. */
    std::uint64_t records = 0;
    /** Number of rotations since the start of the run. */
    std::uint64_t rotations = 0;
    /** Maximum number of waiting requests since the previous sample. */
    std::int64_t waiting = 0;
};

/**
 * A bounded number of samples of a run of any length. When there are MAX_SAMPLES, every second one is removed
 * and the interval is doubled. Counts remain exact, and peaks of waiting requests are preserved. Not
 * thread-safe.
 */
class History
{
public:
    static constexpr std::size_t MAX_SAMPLES = 480;

    History();

    /** Adds a sample. If the previous one is too recent, only its peak is kept, for the next sample. */
    void add(const Sample& now);
    /** Adds the last sample of a run, instead of the previous one if that is too recent. */
    void end(const Sample& now);

    /** Returns the samples in order of time. The first one is the start of the run. */
    const std::vector<Sample>& samples() const
    {
        return retained;
    }

private:
    void append(const Sample& now);
    void thin();

    std::vector<Sample> retained;
    /** Minimum time between samples, in seconds. */
    double interval;
    /** Maximum number of waiting requests since the last sample. */
    std::int64_t peak = 0;
};

}

#endif
