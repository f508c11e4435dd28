#include <dalnim/dalbase.hpp>

#include <dalnim/mt/PoolStatistics.hpp>

#include <algorithm>
#include <numeric>

namespace com::kor::dal::nim::mt {

UInt64_t PoolStatistics::Histogram::count() const noexcept
{
    return std::accumulate(counts, counts + BUCKETS, UInt64_t(0));
}

UInt64_t PoolStatistics::Histogram::quantile(double part) const noexcept
{
    const double needed = static_cast<double>(count()) * part;
    UInt64_t reached = 0;
    UInt64_t longest = 0;
    for (unsigned int i = 0; i < BUCKETS; ++i) {
        if (counts[i] == 0) {
            continue;
        }
        reached += counts[i];
        longest = limit(i);
        if (static_cast<double>(reached) >= needed) {
            break;
        }
    }
    return longest;
}

unsigned int PoolStatistics::Histogram::bucket(UInt64_t microseconds) noexcept
{
    constexpr int BITS = 64;
    return microseconds != 0
               ? std::min(static_cast<unsigned int>(BITS - __builtin_clzll(microseconds)), BUCKETS - 1)
               : 0;
}

}
