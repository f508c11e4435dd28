#ifndef NIMHOST_HISTORY_HPP
#define NIMHOST_HISTORY_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace nimhost {

/** How a run stood at one moment. */
struct Sample
{
    /** Since the run began. */
    double seconds = 0;
    /** Since the run began. */
    std::uint64_t records = 0;
    /** Since the run began. */
    std::uint64_t rotations = 0;
    /** The most requests that were seen to wait since the sample before. */
    std::int64_t waiting = 0;
};

/**
 * The samples of a run of any length in a bounded number: whenever there are MAX_SAMPLES, every
 * second one goes, and from then on they are taken half as often. What is counted stays exact, the
 * peaks of what waits are kept. One thread uses it.
 */
class History
{
public:
    static constexpr std::size_t MAX_SAMPLES = 480;

    History();

    /** Keeps the sample, or its peak for the next one when the last that is kept is not old enough. */
    void take(const Sample& now);
    /** Keeps it in any case, for the last one when that has only just been taken: the end of a run. */
    void end(const Sample& now);

    /** In order of time, the first of them the beginning of the run. */
    const std::vector<Sample>& samples() const
    {
        return kept;
    }

private:
    void keep(const Sample& now);
    void thin();

    std::vector<Sample> kept;
    /** How old the last sample is to be before the next one is kept, in seconds. */
    double interval;
    /** The most that waited since the last one that is kept. */
    std::int64_t peak = 0;
};

}

#endif
