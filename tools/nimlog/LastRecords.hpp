#ifndef DALNIM_TOOLS_NIMLOG_LASTRECORDS_HPP
#define DALNIM_TOOLS_NIMLOG_LASTRECORDS_HPP

#include "KeptRecord.hpp"
#include "RecordSplitter.hpp"

#include <deque>

namespace nimlog {

/** Keeps the last records until they are released, and passes on all later ones. */
class LastRecords : public RecordSink
{
public:
    /** @param limit the number of records to keep */
    LastRecords(std::size_t limit, RecordSink& nextSink) : count(limit), next(nextSink) {}

    void consume(const Record& record) override;

    /** Passes on the kept records. Has no effect after the first call. */
    void release();

private:
    const std::size_t count;
    RecordSink& next;
    bool isReleased = false;
    /** A ring. Elements of a deque are not moved when others are added. */
    std::deque<KeptRecord> kept;
    /** Position of the oldest record, if there are as many as may be kept. */
    std::size_t oldest = 0;
};

}

#endif
