#include "LastRecords.hpp"

namespace nimlog {

void LastRecords::consume(const Record& record)
{
    if (isReleased) {
        next.consume(record);
    } else if (kept.size() < count) {
        kept.emplace_back(record);
    } else if (count != 0) {
        kept[oldest].assign(record);
        oldest = oldest + 1 == count ? 0 : oldest + 1;
    }
}

void LastRecords::release()
{
    isReleased = true;
    for (std::size_t at = 0; at < kept.size(); ++at) {
        next.consume(kept[(oldest + at) % kept.size()].record());
    }
    kept.clear();
}

}
