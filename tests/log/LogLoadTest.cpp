#include "LogSet.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <support/Sanitizers.hpp>

#include <gmock/gmock.h>

#include <atomic>
#include <cstdio>
#include <string_view>
#include <thread>

#include <sys/wait.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;

constexpr unsigned int LOAD_THREADS = 8;

unsigned int perThread()
{
    if (support::UNDER_THREAD_SANITIZER) {
        return 5000;
    }
    return support::isLongRun() ? 125000 : 25000;
}

constexpr std::size_t FILE_SIZE = 64 * 1024;

/** Between these lie the lengths of the records of writeLoad(). */
constexpr std::size_t SHORTEST = 11;
constexpr std::size_t LONGEST = 32;

/** Writes perThread() records from each of threads that start together. */
void writeLoad(const String& path, std::size_t maxFiles)
{
    const Silence silence;
    Write logger;
    logger.setOutputMask(0);
    logger.setPath(path);
    logger.setMaxFileSize(FILE_SIZE);
    logger.setMaxNumberOfFiles(maxFiles);
    std::atomic<unsigned int> ready(0);
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < LOAD_THREADS; ++t) {
        Module& module = Module::getInstance("load" + std::to_string(t), logger);
        threads.emplace_back([&, t] {
            for (++ready; ready < LOAD_THREADS;) {
                std::this_thread::yield();
            }
            for (unsigned int n = 0; n < perThread(); ++n) {
                NIM_LOG_TO(module, Severity_NOTICE) << t << ' ' << n << " end  ";
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(path, logger.getPath());
}

/** The thread and the number of a record that is complete on its line. */
void readRecord(std::string_view line, unsigned int& t, unsigned int& n)
{
    int length = 0;
    const String text(line);
    ASSERT_EQ(2, std::sscanf(text.c_str(), " : %u %u end%n", &t, &n, &length)) << text;
    ASSERT_EQ(text.size(), static_cast<std::size_t>(length)) << text;
    ASSERT_LT(t, LOAD_THREADS) << text;
}

void expectFullFiles(const String& path)
{
    const std::vector<unsigned long> numbers = oldNumbers(path);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        ASSERT_EQ(numbers.size() - 1 - i, numbers[i]) << "gap";
        const std::size_t size = std::filesystem::file_size(path + '.' + std::to_string(i));
        EXPECT_GE(size, FILE_SIZE);
        EXPECT_LT(size, FILE_SIZE + LONGEST);
    }
}

TEST(LogLoadTest, EveryRecordIsWrittenOnceCompletelyAndInOrder)
{
    const Folder folder;
    const String path = folder / "load.log";
    writeLoad(path, 0);
    expectFullFiles(path);
    EXPECT_GE(oldNumbers(path).size(), LOAD_THREADS * perThread() * SHORTEST / FILE_SIZE);

    unsigned int next[LOAD_THREADS] = {};
    forEachLine(wholeLog(path), [&next](std::string_view line) {
        unsigned int t = 0;
        unsigned int n = 0;
        ASSERT_NO_FATAL_FAILURE(readRecord(line, t, n));
        ASSERT_EQ(next[t], n) << line;
        ++next[t];
    });
    for (const unsigned int count : next) {
        EXPECT_EQ(perThread(), count);
    }
}

TEST(LogLoadTest, LimitedSetOfFilesContainsTheLatestRecords)
{
    constexpr std::size_t FILES = 3;
    const Folder folder;
    const String path = folder / "load.log";
    writeLoad(path, FILES);
    expectFullFiles(path);
    EXPECT_EQ(FILES, oldNumbers(path).size());

    // From each thread's first record that is still there on, none is missing.
    unsigned int next[LOAD_THREADS] = {};
    forEachLine(wholeLog(path), [&next](std::string_view line) {
        unsigned int t = 0;
        unsigned int n = 0;
        ASSERT_NO_FATAL_FAILURE(readRecord(line, t, n));
        ASSERT_TRUE(next[t] == 0 || next[t] == n) << line;
        next[t] = n + 1;
    });
    unsigned int finished = 0;
    for (const unsigned int count : next) {
        EXPECT_TRUE(count == 0 || count == perThread()) << count;
        finished += count == perThread() ? 1 : 0;
    }
    EXPECT_GE(finished, 1u);
}

TEST(LogLoadTest, LinesOfTwoProcessesDoNotMix)
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

}
