#include "LogFileFixture.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <random>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;

#if defined(__SANITIZE_THREAD__)
#define LOGLOADTEST_TSAN
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define LOGLOADTEST_TSAN
#endif
#endif

#ifdef LOGLOADTEST_TSAN
constexpr unsigned int LOAD_RECORDS = 40000;
constexpr int KILL_ROUNDS = 10;
#else
constexpr unsigned int LOAD_RECORDS = 400000;
constexpr int KILL_ROUNDS = 50;
#endif

constexpr unsigned int LOAD_THREADS = 8;

/** Swallows standard error: rotations of a long run tell much. */
class Silence
{
public:
    Silence() : old(std::cerr.rdbuf(&nothing)) {}
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence()
    {
        std::cerr.rdbuf(old);
    }

private:
    struct Nothing : std::streambuf
    {
        int_type overflow(int_type byte) override { return traits_type::not_eof(byte); }
        std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    };

    Nothing nothing;
    std::streambuf* old;
};

/** The numbers of the old files of `path`, the oldest file first. */
std::vector<unsigned long> oldNumbers(const String& path)
{
    const std::filesystem::path live(path);
    const String prefix = live.filename().string() + '.';
    std::vector<unsigned long> numbers;
    for (const String& name : namesIn(live.parent_path())) {
        if (name.compare(0, prefix.size(), prefix) == 0) {
            numbers.push_back(std::stoul(name.substr(prefix.size())));
        }
    }
    std::sort(numbers.rbegin(), numbers.rend());
    return numbers;
}

/** What the files of a set hold, in the order in which it was written. */
String wholeLog(const String& path)
{
    String text;
    for (const unsigned long number : oldNumbers(path)) {
        text += contentOf(path + '.' + std::to_string(number));
    }
    return exists(path) ? text + contentOf(path) : text;
}

/** Calls `visit` for each line up to the first failure; a rest without a newline is one. */
template <class Visit>
void forEachLine(std::string_view text, Visit visit)
{
    while (!text.empty() && !testing::Test::HasFailure()) {
        const std::size_t end = text.find('\n');
        ASSERT_NE(std::string_view::npos, end) << "cut: " << text;
        visit(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
}

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

// ---- load -----------------------------------------------------------------------------------

TEST(LogLoadTest, EveryRecordStandsOnceWholeAndInOrder)
{
    constexpr unsigned int PER_THREAD = LOAD_RECORDS / LOAD_THREADS;
    constexpr std::size_t FILE_SIZE = LOAD_RECORDS / 4;
    constexpr std::size_t LONGEST = 32;

    const Folder folder;
    const String path = folder / "load.log";
    const Silence silence;
    {
        Write logger;
        logger.setOutputMask(0);
        logger.setPath(path);
        logger.setMaxFileSize(FILE_SIZE);
        std::atomic<unsigned int> ready(0);
        std::vector<std::thread> threads;
        for (unsigned int t = 0; t < LOAD_THREADS; ++t) {
            Module& module = Module::getInstance("load" + std::to_string(t), logger);
            threads.emplace_back([&, t] {
                for (++ready; ready < LOAD_THREADS;) {
                    std::this_thread::yield();
                }
                for (unsigned int n = 0; n < PER_THREAD; ++n) {
                    NIM_LOG_TO(module, Severity_NOTICE) << t << ' ' << n << " end  ";
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(path, logger.getPath());
    }

    const std::vector<unsigned long> numbers = oldNumbers(path);
    EXPECT_GT(numbers.size(), 40u);
    EXPECT_LT(numbers.size(), 200u);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        ASSERT_EQ(numbers.size() - 1 - i, numbers[i]) << "gap";
        const std::size_t size = std::filesystem::file_size(path + '.' + std::to_string(i));
        EXPECT_GE(size, FILE_SIZE);
        EXPECT_LT(size, FILE_SIZE + LONGEST);
    }

    unsigned int next[LOAD_THREADS] = {};
    forEachLine(wholeLog(path), [&next](std::string_view line) {
        unsigned int t = LOAD_THREADS;
        unsigned int n = 0;
        int length = 0;
        const String text(line);
        ASSERT_EQ(2, std::sscanf(text.c_str(), " : %u %u end%n", &t, &n, &length)) << text;
        ASSERT_EQ(text.size(), static_cast<std::size_t>(length)) << text;
        ASSERT_LT(t, LOAD_THREADS) << text;
        ASSERT_EQ(next[t], n) << text;
        ++next[t];
    });
    for (const unsigned int count : next) {
        EXPECT_EQ(PER_THREAD, count);
    }
}

TEST(LogLoadTest, LinesOfTwoProcessesDoNotTearEachOther)
{
    constexpr std::size_t LENGTH = 200 * 1024;
    constexpr unsigned int RECORDS = 60;

    const Folder folder;
    const String path = folder / "shared.log";
    int barrier[2];
    ASSERT_EQ(0, ::pipe(barrier));
    pid_t children[2];
    for (int c = 0; c < 2; ++c) {
        children[c] = ::fork();
        if (children[c] == 0) {
            LogFileRef file(new LogFile);
            const String record(LENGTH, static_cast<char>('a' + c));
            file->setPath(path);
            char go;
            ::close(barrier[1]);
            const ssize_t atEnd = ::read(barrier[0], &go, 1);
            for (unsigned int n = 0; n < RECORDS; ++n) {
                file->log(record);
            }
            ::_exit(atEnd == 0 ? 0 : 1);
        }
    }
    ::close(barrier[0]);
    ::close(barrier[1]);
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    }

    unsigned int counts[2] = {};
    forEachLine(contentOf(path), [&](std::string_view line) {
        ASSERT_EQ(LENGTH, line.size());
        ASSERT_TRUE(line[0] == 'a' || line[0] == 'b');
        ASSERT_EQ(std::string_view::npos, line.find_first_not_of(line[0])) << "torn";
        ++counts[line[0] - 'a'];
    });
    EXPECT_EQ(RECORDS, counts[0]);
    EXPECT_EQ(RECORDS, counts[1]);
}

// ---- kill -9 --------------------------------------------------------------------------------

constexpr unsigned int KILL_THREADS = 3;

/**
 * With its newline the length of a record: it divides a page, so that no record crosses one. The
 * kernel copies page by page and may stop between two of them when the process is killed; that is
 * not the library's to prevent.
 */
constexpr std::size_t KILL_LENGTH = 64;

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
        : data(static_cast<Data*>(::mmap(nullptr, sizeof(Data), PROT_READ | PROT_WRITE,
                                         MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
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

/** A child process whose threads log numbered records until it is killed. */
class Victim
{
public:
    Victim(char victim_name, const String& path, std::size_t maxFileSize) : name(victim_name), child(::fork())
    {
        if (child == 0) {
            run(path, maxFileSize);
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
        unsigned int t = KILL_THREADS;
        unsigned int n = 0;
        const String text(line);
        if (std::sscanf(text.c_str(), " : %*c %u %u", &t, &n) != 2 || t >= KILL_THREADS ||
            text != record(t, n)) {
            return false;
        }
        EXPECT_EQ(found[t], n) << "not in order, or twice";
        ++found[t];
        return true;
    }

    /** All that was told to be written has been read, and at most one record of each thread more. */
    void expectComplete() const
    {
        for (unsigned int t = 0; t < KILL_THREADS; ++t) {
            const unsigned int returned = account.data->returned[t];
            EXPECT_GE(found[t], returned) << name << t << " lost a record";
            EXPECT_LE(found[t], returned + 1) << name << t;
        }
    }

private:
    String record(unsigned int t, unsigned int n) const
    {
        String text = String(" : ") + name + ' ' + std::to_string(t) + ' ' + std::to_string(n) + ' ';
        return text + String(KILL_LENGTH - 1 - text.size(), 'x');
    }

    [[noreturn]] void run(const String& path, std::size_t maxFileSize)
    {
        ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
        Write logger;
        logger.setOutputMask(0);
        logger.setPath(path);
        logger.setMaxFileSize(maxFileSize);
        Module module("victim", logger);
        std::vector<std::thread> threads;
        for (unsigned int t = 0; t < KILL_THREADS; ++t) {
            threads.emplace_back([&, t] {
                for (unsigned int n = 0;; ++n) {
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
    Account account;
    unsigned int found[KILL_THREADS] = {};
    pid_t child;
};

TEST(LogLoadTest, KilledProcessLosesNoRecordOfARotatedSet)
{
    Random random(20240611);
    unsigned int total = 0;
    for (int round = 0; round < KILL_ROUNDS / 2 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const Folder folder;
        const String path = folder / "killed.log";
        Victim victim('v', path, KILL_LENGTH * 64);
        victim.killAfter(random.upTo(2000));
        forEachLine(wholeLog(path), [&](std::string_view line) {
            ASSERT_TRUE(victim.read(line)) << "torn: " << line;
            ++total;
        });
        victim.expectComplete();
    }
    EXPECT_GT(total, 1000u);
}

TEST(LogLoadTest, KilledProcessesLoseNoRecordOfASharedFile)
{
    Random random(20240612);
    unsigned int total = 0;
    for (int round = 0; round < KILL_ROUNDS / 2 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const Folder folder;
        const String path = folder / "killed.log";
        Victim first('a', path, 0);
        Victim second('b', path, 0);
        first.killAfter(random.upTo(2000));
        second.killAfter(random.upTo(4000));
        forEachLine(contentOf(path), [&](std::string_view line) {
            ASSERT_GT(line.size(), 3u);
            ASSERT_TRUE((line[3] == 'a' ? first : second).read(line)) << "torn: " << line;
            ++total;
        });
        first.expectComplete();
        second.expectComplete();
    }
    EXPECT_GT(total, 1000u);
}

}
