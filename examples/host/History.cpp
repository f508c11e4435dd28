#include "History.hpp"

#include <algorithm>

namespace nimhost {

namespace {

constexpr double FIRST_INTERVAL = 0.1;
/** Fraction of the interval after which a sample is already due, because callers are not exact. */
constexpr double TOLERANCE = 0.75;

}

History::History() : retained(1), interval(FIRST_INTERVAL) {}

void History::add(const Sample& now)
{
    peak = std::max(peak, now.waiting);
    if (now.seconds - retained.back().seconds >= interval * TOLERANCE) {
        append(now);
    }
}

void History::end(const Sample& now)
{
    peak = std::max(peak, now.waiting);
    // A rate over a very short time is meaningless, so the last sample replaces the one before.
    if (retained.size() > 1 && now.seconds - retained.back().seconds < interval * TOLERANCE) {
        peak = std::max(peak, retained.back().waiting);
        retained.pop_back();
    }
    append(now);
}

void History::append(const Sample& now)
{
    retained.push_back(now);
    retained.back().waiting = peak;
    peak = 0;
    if (retained.size() == MAX_SAMPLES) {
        thin();
    }
}

void History::thin()
{
    // Keeps the first sample, and of each following pair the later sample with the peak of both.
    std::size_t to = 1;
    for (std::size_t from = 2; from < retained.size(); from += 2, ++to) {
        const std::int64_t highest = std::max(retained[from - 1].waiting, retained[from].waiting);
        retained[to] = retained[from];
        retained[to].waiting = highest;
    }
    // Keeps the latest sample even if it is not part of a pair.
    if (retained.size() % 2 == 0) {
        retained[to++] = retained.back();
    }
    retained.resize(to);
    interval *= 2;
}

}
