#ifndef DALNIM_TOOLS_NIMLOG_LOGS_HPP
#define DALNIM_TOOLS_NIMLOG_LOGS_HPP

#include "Options.hpp"
#include "Reader.hpp"
#include "RecordQueue.hpp"
#include "RecordSplitter.hpp"

#include <memory>

namespace nimlog {

/** A log and its rotated files. */
struct Log
{
    /** @param recordSink receives the records; null to queue them */
    Log(const std::string& logPath, unsigned int mask, RecordSink* recordSink,
        const std::function<void(const std::string&)>& warnings)
        : path(logPath), queue(path), splitter(mask, recordSink == nullptr ? queue : *recordSink),
          reader(path, splitter, warnings)
    {
    }

    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    const std::string path;
    RecordQueue queue;
    RecordSplitter splitter;
    Reader reader;
    /** Whether there was nothing more to read when the log was last read. */
    bool isAtEnd = false;
};

/** Reads logs. The records of several logs are passed on in the order of their times. */
class Logs
{
public:
    /** @param warnings called with messages for the user */
    Logs(const Options& options, RecordSink& recordSink,
         const std::function<void(const std::string&)>& warnings);

    /**
     * Reads all files to their end.
     * @param idle called if standard input brings nothing for a while
     * @throws Failure if a log does not exist, or a file cannot be read
     */
    void readAll(const std::function<void()>& idle);

    /** Reads all files, then follows the logs until a signal arrives. `idle` is called before each wait. */
    void follow(const std::function<void()>& idle);

    /** Returns true if the records that the logs contained at the start have been passed on. */
    bool hasCaughtUp();

    const std::vector<std::unique_ptr<Log>>& all() const
    {
        return logs;
    }

private:
    bool isMerging() const
    {
        return logs.size() > 1;
    }
    Log* earliest() const;
    bool mayPassOn(const Log& log) const;
    void passOn(Log& log);
    bool passOnReady();
    bool readEach();

    RecordSink& sink;
    std::vector<std::unique_ptr<Log>> logs;
    /** When all logs were first read to their end. */
    std::chrono::steady_clock::time_point caughtUp;
    bool wereAllAtEnd = false;
};

}

#endif
