// Processes that are killed while they log: what the log holds then, and how the next process goes on.

#include "LogSet.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;

int rounds()
{
    return support::isLongRun() ? 200 : 15;
}

constexpr unsigned int KILL_THREADS = 3;

/**
 * With its newline the length of a record: it divides a page, so that no record crosses one. The
 * kernel copies page by page and may stop between two of them when the process is killed; that is
 * not the library's to prevent.
 */
constexpr std::size_t UNCUT_LENGTH = 64;

/** Of many pages, so that a process is killed in the middle of a record now and then. */
constexpr std::size_t LONG_LENGTH = 128 * 1024;

/** The size of a file of records that are not cut. */
constexpr std::size_t FILE_SIZE = UNCUT_LENGTH * 64;

/** Numbers from 1 up to a limit, the same in each run. */
class Random
{
public:
    explicit Random(unsigned int seed) : engine(seed) {}

    unsigned int upTo(unsigned int limit)
    {
        return std::uniform_int_distribution<unsigned int>(1, limit)(engine);
    }

private:
    std::mt19937 engine;
};

/** What a process that was killed has said about its work, in memory that outlives it. */
class Account
{
public:
    struct Data
    {
        /** How many statements of each thread have returned. */
        std::atomic<unsigned int> returned[KILL_THREADS];
    };

    Account()
        : data(static_cast<Data*>(
            ::mmap(nullptr, sizeof(Data), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        if (data == MAP_FAILED) {
            std::abort();
        }
    }
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;
    ~Account()
    {
        ::munmap(data, sizeof(Data));
    }

    unsigned int sum() const
    {
        unsigned int total = 0;
        for (const auto& count : data->returned) {
            total += count;
        }
        return total;
    }

    Data* const data;
};

struct VictimOptions
{
    std::size_t recordLength = UNCUT_LENGTH;
    std::size_t maxFileSize = 0;
    /** How many records each thread has to write; it waits to be killed behind them. */
    unsigned int limit = ~0U;
};

/** A child process whose threads log numbered records until it is killed. */
class Victim
{
public:
    Victim(char victim_name, const String& path, VictimOptions victim_options)
        : name(victim_name), options(victim_options), child(::fork())
    {
        if (child == 0) {
            run(path);
        }
    }
    Victim(const Victim&) = delete;
    Victim& operator=(const Victim&) = delete;
    ~Victim()
    {
        kill();
    }

    /** Kills it as soon as it has written so many records. */
    void killAfter(unsigned int records)
    {
        while (account.sum() < records) {
            if (::waitpid(child, nullptr, WNOHANG) != 0) {
                child = -1;
                FAIL() << name << " died by itself";
            }
            std::this_thread::yield();
        }
        kill();
    }

    /** Takes a line of the log; true if it is one of this process. */
    bool read(std::string_view line)
    {
        unsigned int t = 0;
        unsigned int n = 0;
        if (!parse(line, t, n) || line != record(t, n)) {
            return false;
        }
        EXPECT_EQ(found[t], n) << "not in order, or twice";
        ++found[t];
        return true;
    }

    /** Takes the beginning of a record that was cut, none of whose statements can have returned. */
    void readCut(std::string_view part)
    {
        unsigned int t = 0;
        unsigned int n = 0;
        // A record that is shorter than its numbers would prove nothing; the kernel stops at the end of a
        // page.
        ASSERT_TRUE(parse(part, t, n)) << part;
        EXPECT_EQ(part, std::string_view(record(t, n)).substr(0, part.size()));
        EXPECT_EQ(found[t], n);
        EXPECT_EQ(account.data->returned[t], n) << "cut, although it was told to be written";
    }

    /** Expects that all records that were reported as written have been read, and at most one more of each
     * thread. */
    void expectComplete() const
    {
        for (unsigned int t = 0; t < KILL_THREADS; ++t) {
            const unsigned int returned = account.data->returned[t];
            EXPECT_GE(found[t], returned) << name << t << " lost a record";
            EXPECT_LE(found[t], returned + 1) << name << t;
        }
    }

private:
    bool parse(std::string_view line, unsigned int& t, unsigned int& n) const
    {
        char who = 0;
        return std::sscanf(String(line.substr(0, 40)).c_str(), " : %c %u %u ", &who, &t, &n) == 3
               && who == name && t < KILL_THREADS;
    }

    String record(unsigned int t, unsigned int n) const
    {
        const String text = String(" : ") + name + ' ' + std::to_string(t) + ' ' + std::to_string(n) + ' ';
        return text + String(options.recordLength - 1 - text.size(), 'x');
    }

    [[noreturn]] void run(const String& path)
    {
        ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
        Write logger;
        logger.setOutputMask(0);
        logger.setPath(path);
        logger.setMaxFileSize(options.maxFileSize);
        Module module("victim", logger);
        std::vector<std::thread> threads;
        for (unsigned int t = 0; t < KILL_THREADS; ++t) {
            threads.emplace_back([&, t] {
                for (unsigned int n = 0; n < options.limit; ++n) {
                    NIM_LOG_TO(module, Severity_NOTICE) << record(t, n).substr(3);
                    account.data->returned[t] = n + 1;
                }
            });
        }
        for (;;) {
            ::pause();
        }
    }

    void kill()
    {
        if (child > 0) {
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
            child = -1;
        }
    }

    const char name;
    const VictimOptions options;
    Account account;
    unsigned int found[KILL_THREADS] = {};
    pid_t child;
};

class LogKillTest : public testing::Test
{
protected:
    LogKillTest() : random(20240611) {}

    /** Runs `round(path)` as often as the run is long, each time with a directory of its own. */
    template <class Round>
    void repeat(Round round)
    {
        for (int i = 0; i < rounds() && !HasFailure(); ++i) {
            SCOPED_TRACE(i);
            const Folder folder;
            round(folder / "killed.log");
        }
        EXPECT_GT(records, static_cast<unsigned int>(rounds())) << "hardly anything was written";
        RecordProperty("records", static_cast<int>(records));
    }

    /** Reads a log whose lines are all of one of two victims, those of the first before the others. */
    void readInTurn(const String& path, Victim& first, Victim& second)
    {
        bool secondHasBegun = false;
        forEachLine(wholeLog(path), [&](std::string_view line) {
            secondHasBegun = secondHasBegun || !first.read(line);
            ASSERT_TRUE(!secondHasBegun || second.read(line)) << "torn: " << line;
            ++records;
        });
        first.expectComplete();
        second.expectComplete();
    }

    Random random;
    unsigned int records = 0;
};

TEST_F(LogKillTest, NoRecordOfARotatedSetIsLost)
{
    repeat([this](const String& path) {
        Victim victim('v', path, {UNCUT_LENGTH, FILE_SIZE});
        victim.killAfter(random.upTo(2000));
        forEachLine(wholeLog(path), [&](std::string_view line) {
            ASSERT_TRUE(victim.read(line)) << "torn: " << line;
            ++records;
        });
        victim.expectComplete();
    });
}

TEST_F(LogKillTest, NoRecordOfASharedFileIsLost)
{
    repeat([this](const String& path) {
        Victim first('a', path, {});
        Victim second('b', path, {});
        first.killAfter(random.upTo(2000));
        second.killAfter(random.upTo(4000));
        forEachLine(contentOf(path), [&](std::string_view line) {
            ASSERT_TRUE(first.read(line) || second.read(line)) << "torn: " << line;
            ++records;
        });
        first.expectComplete();
        second.expectComplete();
    });
}

TEST_F(LogKillTest, TheNextProcessGoesOnInTheFile)
{
    repeat([this](const String& path) {
        Victim first('a', path, {});
        first.killAfter(random.upTo(1000));
        Victim second('b', path, {});
        second.killAfter(random.upTo(1000));
        readInTurn(path, first, second);
    });
}

TEST_F(LogKillTest, TheNextProcessGoesOnWithTheSet)
{
    repeat([&](const String& path) {
        Victim first('a', path, {UNCUT_LENGTH, FILE_SIZE});
        first.killAfter(random.upTo(1000));
        Victim second('b', path, {UNCUT_LENGTH, FILE_SIZE});
        second.killAfter(random.upTo(1000));
        readInTurn(path, first, second);
    });
}

TEST_F(LogKillTest, OnlyTheLastRecordMayBeTruncated)
{
    int cuts = 0;
    repeat([&](const String& path) {
        Victim victim('v', path, {LONG_LENGTH, 0, 40});
        victim.killAfter(random.upTo(20));
        const String content = contentOf(path);
        const std::size_t end = content.rfind('\n') + 1;
        forEachLine(std::string_view(content).substr(0, end), [&](std::string_view line) {
            ASSERT_TRUE(victim.read(line)) << "torn: " << line.substr(0, 100);
            ++records;
        });
        victim.expectComplete();
        if (end != content.size()) {
            victim.readCut(std::string_view(content).substr(end));
            ++cuts;
        }

        // The next line does not continue the cut one.
        LogFileRef file(new LogFile);
        file->setPath(path);
        file->log("next");
        file->close();
        EXPECT_EQ(content + (end != content.size() ? "\nnext\n" : "next\n"), contentOf(path));
    });
    RecordProperty("cuts", cuts);
}

}
