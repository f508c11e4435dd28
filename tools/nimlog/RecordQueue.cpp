#include "RecordQueue.hpp"

#include <dalnim/log/Common.hpp>

namespace nimlog {

namespace log = com::kor::dal::nim::log;

void RecordQueue::consume(const Record& record)
{
    if ((record.fields.present & log::Mask_DATETIME) != 0) {
        lastTime = record.fields.dateTime.when;
    }
    Record named = record;
    named.log = path;
    Entry& entry = entries.emplace_back(named);
    entry.when = lastTime;
    entry.arrival = std::chrono::steady_clock::now();
}

}
