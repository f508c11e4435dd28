#include "Logs.hpp"

#include "Changes.hpp"

#include <algorithm>

namespace nimlog {

namespace {

/**
 * How long a record is kept back because another log that is followed may still get an older one: threads and
 * processes that write at the same time are not detected in the same order.
 */
constexpr std::chrono::milliseconds HOLD_TIME(200);

/** Maximum time after which the records that the logs contained at the start are considered complete. */
constexpr std::chrono::milliseconds CATCH_UP_TIME(500);

/** Returns true if no older record is expected. */
bool isSettled(const RecordQueue::Entry& entry)
{
    using std::chrono::steady_clock;
    using std::chrono::system_clock;
    return system_clock::from_time_t(entry.when.seconds) + HOLD_TIME <= system_clock::now()
           || entry.arrival + HOLD_TIME <= steady_clock::now();
}

}

Logs::Logs(const Options& options, RecordSink& recordSink,
           const std::function<void(const std::string&)>& warnings)
    : sink(recordSink)
{
    // The records of a single log are passed on directly.
    RecordSink* const direct = options.paths.size() == 1 ? &recordSink : nullptr;
    for (const std::string& path : options.paths) {
        logs.push_back(std::make_unique<Log>(path, options.mask, direct, warnings));
    }
}

void Logs::readAll(const std::function<void()>& idle)
{
    for (const auto& log : logs) {
        log->reader.open();
    }
    for (Log* next = nullptr;; passOn(*next)) {
        for (const auto& log : logs) {
            while (log->queue.isEmpty() && !log->isAtEnd) {
                log->isAtEnd = !log->reader.readNext(idle);
            }
        }
        next = earliest();
        if (next == nullptr) {
            return;
        }
    }
}

void Logs::follow(const std::function<void()>& idle)
{
    std::vector<std::string> paths;
    for (const auto& log : logs) {
        paths.push_back(log->path);
    }
    Changes changes(paths);
    while (!changes.isStopped()) {
        const bool hasRead = readEach();
        if (passOnReady() || hasRead) {
            continue;
        }
        std::chrono::milliseconds limit = Reader::MAX_WAIT;
        for (const auto& log : logs) {
            limit = std::min(limit, log->reader.prepareWait());
        }
        if (passOnReady()) {
            continue;
        }
        idle();
        const bool isKeepingBack =
            std::any_of(logs.begin(), logs.end(), [](const auto& log) { return !log->queue.isEmpty(); });
        changes.wait(isKeepingBack ? std::min(limit, HOLD_TIME / 4) : limit);
        for (const auto& log : logs) {
            log->reader.restartIfTruncated();
        }
    }
    for (const auto& log : logs) {
        log->reader.endFollowing();
    }
    while (Log* const next = earliest()) {
        passOn(*next);
    }
}

/** Reads from each log without records in its queue. Returns false if there was nothing new. */
bool Logs::readEach()
{
    bool hasRead = false;
    for (const auto& log : logs) {
        if (log->queue.isEmpty()) {
            log->isAtEnd = !log->reader.followNext();
            hasRead = hasRead || !log->isAtEnd;
        }
    }
    return hasRead;
}

bool Logs::hasCaughtUp()
{
    const bool areAtEnd = std::all_of(logs.begin(), logs.end(), [](const auto& log) { return log->isAtEnd; });
    if (areAtEnd && !wereAllAtEnd) {
        wereAllAtEnd = true;
        caughtUp = std::chrono::steady_clock::now();
    }
    const bool hasPending = std::any_of(logs.begin(), logs.end(), [](const auto& log) {
        return log->splitter.hasPending() || !log->queue.isEmpty();
    });
    return wereAllAtEnd && (!hasPending || std::chrono::steady_clock::now() - caughtUp >= CATCH_UP_TIME);
}

/** Returns the log whose first record is the oldest, or null. Of equal times, the first log is preferred. */
Log* Logs::earliest() const
{
    Log* found = nullptr;
    for (const auto& log : logs) {
        if (!log->queue.isEmpty()
            && (found == nullptr || log->queue.front().when < found->queue.front().when)) {
            found = log.get();
        }
    }
    return found;
}

/** Returns true if the first record of a log, which is the earliest one, need not wait for other logs. */
bool Logs::mayPassOn(const Log& log) const
{
    bool mustSettle = false;
    for (const auto& other : logs) {
        if (other->queue.isEmpty()) {
            if (!other->isAtEnd || other->splitter.hasPending()) {
                return false;
            }
            mustSettle = true;
        }
    }
    return !mustSettle || isSettled(log.queue.front());
}

void Logs::passOn(Log& log)
{
    sink.consume(log.queue.front().kept.record());
    log.queue.pop();
}

/** Returns false if no record could be passed on. */
bool Logs::passOnReady()
{
    for (bool hasPassed = false;; hasPassed = true) {
        Log* const next = earliest();
        if (next == nullptr || !mayPassOn(*next)) {
            return hasPassed;
        }
        passOn(*next);
        // The log may have grown in the meantime.
        next->isAtEnd = next->isAtEnd && !next->queue.isEmpty();
    }
}

}
