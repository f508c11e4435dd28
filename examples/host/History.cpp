#include "History.hpp"

#include <algorithm>

namespace nimhost {

namespace {

constexpr double FIRST_INTERVAL = 0.1;
/** So much earlier than its time a sample is still taken: whoever takes them is not that exact. */
constexpr double TOLERANCE = 0.75;

}

History::History() : kept(1), interval(FIRST_INTERVAL) {}

void History::take(const Sample& now)
{
    peak = std::max(peak, now.waiting);
    if (now.seconds - kept.back().seconds >= interval * TOLERANCE) {
        keep(now);
    }
}

void History::end(const Sample& now)
{
    peak = std::max(peak, now.waiting);
    // The rate over a moment would say nothing: it is the last part's that ends now.
    if (kept.size() > 1 && now.seconds - kept.back().seconds < interval * TOLERANCE) {
        peak = std::max(peak, kept.back().waiting);
        kept.pop_back();
    }
    keep(now);
}

void History::keep(const Sample& now)
{
    kept.push_back(now);
    kept.back().waiting = peak;
    peak = 0;
    if (kept.size() == MAX_SAMPLES) {
        thin();
    }
}

void History::thin()
{
    // The beginning stays, and of each pair behind it the later one, with the peak of both.
    std::size_t to = 1;
    for (std::size_t from = 2; from < kept.size(); from += 2, ++to) {
        const std::int64_t highest = std::max(kept[from - 1].waiting, kept[from].waiting);
        kept[to] = kept[from];
        kept[to].waiting = highest;
    }
    // One that has no partner is the latest of all, and stays as well.
    if (kept.size() % 2 == 0) {
        kept[to++] = kept.back();
    }
    kept.resize(to);
    interval *= 2;
}

}
