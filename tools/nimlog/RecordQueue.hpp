#ifndef DALNIM_TOOLS_NIMLOG_RECORDQUEUE_HPP
#define DALNIM_TOOLS_NIMLOG_RECORDQUEUE_HPP

#include "KeptRecord.hpp"
#include "RecordSplitter.hpp"

#include <chrono>
#include <deque>
#include <string>

namespace nimlog {

/** Keeps the records of a log until those of other logs that are older have been read. */
class RecordQueue : public RecordSink
{
public:
    struct Entry
    {
        explicit Entry(const Record& original) : kept(original) {}

        KeptRecord kept;
        /** Time of the record; that of its predecessor if it has none. */
        Instant when;
        std::chrono::steady_clock::time_point arrival;
    };

    /** @param logPath name of the log in the records; must outlive them */
    explicit RecordQueue(const std::string& logPath) : path(logPath) {}

    void consume(const Record& record) override;

    bool isEmpty() const
    {
        return entries.empty();
    }
    /** Returns the oldest record. Requires that the queue is not empty. */
    const Entry& front() const
    {
        return entries.front();
    }
    void pop()
    {
        entries.pop_front();
    }

private:
    const std::string& path;
    std::deque<Entry> entries;
    /** Records before the first one with a time are the oldest of all. */
    Instant lastTime;
};

}

#endif
