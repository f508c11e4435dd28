#ifndef TESTS_SOAK_TORTURE_ROUND_HPP
#define TESTS_SOAK_TORTURE_ROUND_HPP

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace torture {

constexpr unsigned int MAX_LIVES = 6;
constexpr unsigned int MAX_THREADS = 3;
constexpr unsigned int MAX_CHILDREN = 24;
constexpr unsigned int THREAD_RECORDS = 3000;
constexpr unsigned int CHILD_RECORDS = 20;
/** Longer than a record, a child or the end of a process takes on a busy machine, also under a sanitizer. */
constexpr unsigned int HUNG_SECONDS = 60;

/** The state of standard error during a round. */
enum class ErrorOutput {
    PIPE,
    NON_BLOCKING_PIPE,
    /** A small pipe whose reader pauses for less time than the log waits. */
    SLOW_PIPE,
    FILE,
    CLOSED,
    /** A full pipe that has no reader. */
    FULL_PIPE
};
constexpr std::array<const char*, 6> ERROR_OUTPUT_NAMES = {"pipe",   "non-blocking pipe", "slow pipe", "file",
                                                           "closed", "full pipe"};

/** The events of a round, which are determined by the seed. */
struct Scenario
{
    std::uint64_t seed;
    /** Number of processes that log to the file, in turn or concurrently (`atATime`). */
    unsigned int lives;
    bool atATime;
    unsigned int threads;
    /** Whether the program logs to a Write of its own, without reports and stream header. */
    bool ownLogger;
    /** Whether records begin with the local time. */
    bool localTime;
    std::size_t shortest;
    std::size_t longest;
    /** Number of records of each thread. */
    unsigned int records;
    std::size_t maxFileSize;
    std::size_t maxNumberOfFiles;
    ErrorOutput errorOutput;
    bool diskFills;
    bool directoryCloses;
    bool signals;
    bool reopens;
    bool fallback;
    unsigned int children;
};

/** The state of a record's statement. */
enum class Statement : std::uint8_t { NOT_BEGUN, BEGUN, RETURNED, THREW };
typedef std::atomic<Statement> StatementState;

/** The statements of one thread, in order. */
struct Writer
{
    /** Identifies the writer in its records. */
    unsigned int number;
    unsigned int life;
    bool isChild;
    StatementState* statements;
    unsigned int count;
};

/** A round, in memory that its processes share, and that outlives them. */
struct Round
{
    Scenario scenario;
    std::array<char, 256> path;
    std::atomic<bool> isStopped;
    std::atomic<unsigned int> hung;
    std::atomic<unsigned int> childKills;
    // Counted for each life.
    std::array<std::atomic<unsigned int>, MAX_LIVES> begun;
    std::array<std::atomic<unsigned int>, MAX_LIVES> finished;
    std::array<std::atomic<unsigned int>, MAX_LIVES> forks;
    std::array<std::array<StatementState, THREAD_RECORDS>, MAX_LIVES * MAX_THREADS> ofThreads;
    std::array<std::array<StatementState, CHILD_RECORDS>, MAX_LIVES * MAX_CHILDREN> ofChildren;

    Writer thread(unsigned int life, unsigned int index)
    {
        const unsigned int number = life * MAX_THREADS + index;
        return {number, life, false, ofThreads[number].data(), scenario.records};
    }
    Writer child(unsigned int life, unsigned int index)
    {
        const unsigned int number = life * MAX_CHILDREN + index;
        return {MAX_LIVES * MAX_THREADS + number, life, true, ofChildren[number].data(), CHILD_RECORDS};
    }
};

/** The beginning of each record. */
constexpr char MARK[] = "@rec ";

/** Returns the text of a record, which is determined by the seed of the round. */
inline std::string recordText(const Scenario& scenario, unsigned int writer, unsigned int number)
{
    std::uint64_t hash = scenario.seed + writer * 0x9E3779B97F4A7C15ULL + number * 0xBF58476D1CE4E5B9ULL;
    hash = (hash ^ (hash >> 31)) * 0x94D049BB133111EBULL;
    const std::size_t range = scenario.longest - scenario.shortest + 1;
    const std::size_t length = scenario.shortest + (hash >> 33) % range;
    std::string text = MARK + std::to_string(writer) + ' ' + std::to_string(number) + ' ';
    const char filler = static_cast<char>('a' + (writer + number) % 26);
    text.append(length - text.size() - 1, filler);
    return text + '#';
}

/** Logs as one process of a round until it has finished or is stopped. Returns the exit status. */
int work(Round& round, unsigned int life);

}

#endif
