// Statements on several threads while the log's settings change under them. What they read without a
// lock is for the thread sanitizer to judge; what they write is judged here.

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/sys/System.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace logtest;
using log::Module;
using log::Write;
using logfiletest::contentOf;
using logfiletest::Folder;

constexpr char CIMOM_MODULE[] = "com_kor_dal_nim_log_module_CIMOM";
constexpr int THREADS = 4;

/** Runs `work(number)` on several threads, all of which have started before `concurrently()` runs here. */
template <class Work, class Meanwhile>
void onThreads(Work work, Meanwhile concurrently)
{
    std::atomic<int> ready(0);
    std::atomic<bool> go(false);
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (!go) {
                std::this_thread::yield();
            }
            work(i);
        });
    }
    while (ready != THREADS) {
        std::this_thread::yield();
    }
    go = true;
    concurrently();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/** Returns how often each line occurs in a text. */
std::map<String, int> countLines(const String& text)
{
    std::map<String, int> counts;
    std::istringstream stream(text);
    for (String line; std::getline(stream, line);) {
        ++counts[line];
    }
    return counts;
}

TEST(LogThreads, LinesOfOneLoggerStayWhole)
{
    constexpr int RECORDS = 200;
    OwnLogger logger;
    Module module("shared", logger.write);
    onThreads(
        [&](int number) {
            for (int i = 0; i < RECORDS; ++i) {
                NIM_LOG_TO(module, Severity_ERROR) << "thread " << number << " says " << String(100, 'x');
            }
        },
        [] {});
    std::map<String, int> expected;
    for (int i = 0; i < THREADS; ++i) {
        expected["shared ERROR LogThreadsTest.cpp : thread " + std::to_string(i) + " says "
                 + String(100, 'x')] = RECORDS;
    }
    EXPECT_EQ(expected, countLines(logger.taken()));
}

TEST(LogThreads, SettingsMayChangeDuringStatements)
{
    constexpr int RECORDS = 300;
    OwnLogger logger(log::Mask_SEVERITY);
    Module module("shared", logger.write);
    std::atomic<int> running(THREADS);
    onThreads(
        [&](int) {
            for (int i = 0; i < RECORDS; ++i) {
                NIM_LOG_TO(module, Severity_DEBUG) << "low";
                NIM_LOG_TO(module, Severity_WARNING) << "filtered";
                NIM_LOG_TO(module, Severity_FATAL) << "always";
                logger.write.getSeverity();
                logger.write.getOutputMask();
                logger.write.remoteControlAllowed();
                logger.write.getLocaltime();
            }
            --running;
        },
        [&] {
            // Neither a threshold nor a mask here refuses FATAL.
            for (int i = 0; running != 0; ++i) {
                logger.write.setSeverity(i % 2 == 0 ? log::Severity_TRACE : log::Severity_FATAL);
                logger.write.setSeverityMask(SeverityColl{log::Severity_FATAL, log::Severity_INFO}, true);
                logger.write.setSeverityMask(log::Severity_INFO, false);
                logger.write.setModuleFilter("other", true);
                logger.write.setModuleFilter("sh*", true);
                logger.write.setModuleFilter("", false);
                logger.write.setOutputMask(log::Mask_SEVERITY | log::Mask_DATETIME);
                logger.write.setLocaltime(i % 2 == 0);
                logger.write.setOutputMask(log::Mask_SEVERITY);
                logger.write.allowRemoteControl(i % 2 == 0);
                SeverityColl mask;
                logger.write.getSeverityMask(mask);
                StringColl filter;
                logger.write.getModuleFilter(filter);
                EXPECT_TRUE(filter.empty());
            }
        });
    logger.write.setLocaltime(false);
    int always = 0;
    for (const auto& [line, count] : countLines(logger.taken())) {
        EXPECT_THAT(line, testing::MatchesRegex(
                              "([A-Z][a-z][a-z] .* )?(DEBUG : low|WARNING : filtered|FATAL : always)"));
        if (line.find("FATAL") != String::npos) {
            always += count;
        }
    }
    EXPECT_EQ(THREADS * RECORDS, always);
}

TEST(LogThreads, DefaultLoggerMayBeConfiguredDuringStatements)
{
    constexpr int RECORDS = 100;
    const Folder folder;
    DefaultLogger logger;
    com::kor::dal::nim::io::Properties files[2];
    for (int i = 0; i < 2; ++i) {
        const String front = "com.kor.dal.nim.log.Control.";
        files[i].setProperty(front + "file", folder / (i == 0 ? "a.log" : "b.log"));
        files[i].setProperty(front + "severity.id", i == 0 ? "TRACE" : "WARNING");
        files[i].setProperty(front + "modules", i == 0 ? "global" : "other");
        files[i].setProperty(front + "localtime", i == 0 ? "true" : "false");
    }
    // The first records must not reach the stream that the logger has before.
    com::kor::dal::nim::sys::System::setConfiguration(files[1]);
    std::atomic<int> running(THREADS);
    onThreads(
        [&](int) {
            for (int i = 0; i < RECORDS; ++i) {
                NIM_LOG(Severity_ERROR) << "always";
                NIM_LOG(Severity_DEBUG) << "sometimes";
            }
            --running;
        },
        [&] {
            for (int i = 0; running != 0; ++i) {
                com::kor::dal::nim::sys::System::setConfiguration(files[i % 2]);
            }
        });
    com::kor::dal::nim::sys::System::setConfiguration(files[0]);
    com::kor::dal::nim::sys::System::setConfiguration(files[1]);
    int always = 0;
    for (const char* const name : {"a.log", "b.log"}) {
        const std::map<String, int> counts = countLines(contentOf(folder / name));
        const auto found = counts.find("global ERROR LogThreadsTest.cpp : always");
        always += found != counts.end() ? found->second : 0;
    }
    EXPECT_EQ(THREADS * RECORDS, always) << "no record is lost in between";
}

TEST(LogThreads, TwoLoggersMayShareAFile)
{
    constexpr int RECORDS = 150;
    const Folder folder;
    Write owner;
    owner.setPath(folder / "shared.log");
    owner.setOutputMask(0);
    const Module module(CIMOM_MODULE, owner);
    Write borrower;
    borrower.setOutputMask(0);
    borrower.registerModule(module);
    borrower.setStream("CIMOM");
    Module its("borrower", borrower);
    Module owners("owner", owner);
    onThreads(
        [&](int number) {
            for (int i = 0; i < RECORDS; ++i) {
                NIM_LOG_TO(number % 2 == 0 ? its : owners, Severity_ERROR) << number % 2 << String(200, 'x');
            }
        },
        [&] {
            for (int i = 0; i < 50; ++i) {
                borrower.is_open();
                EXPECT_EQ(folder / "shared.log", borrower.getPath());
            }
        });
    EXPECT_EQ((std::map<String, int>{{" : 0" + String(200, 'x'), 2 * RECORDS},
                                     {" : 1" + String(200, 'x'), 2 * RECORDS}}),
              countLines(contentOf(folder / "shared.log")));
}

TEST(LogThreads, TheDefaultLoggerMayComeToAFileInUse)
{
    constexpr int RECORDS = 100;
    const Folder folder;
    DefaultLogger logger;
    Write owner;
    owner.setPath(folder / "shared.log");
    owner.setOutputMask(0);
    Module module(CIMOM_MODULE, owner);
    logger->registerModule(module);
    onThreads(
        [&](int) {
            for (int i = 0; i < RECORDS; ++i) {
                NIM_LOG_TO(module, Severity_ERROR) << String(200, 'x');
            }
        },
        [&] {
            for (int i = 0; i < 20; ++i) {
                logger->setStream("CIMOM");
                logger->setStream(asIos(logger.sink));
            }
        });
    logger->unregisterModule(module);
    const std::map<String, int> counts = countLines(contentOf(folder / "shared.log"));
    EXPECT_EQ(THREADS * RECORDS, counts.at(" : " + String(200, 'x')));
    EXPECT_EQ(20, counts.at("\tSeverityMin:  NOTICE")) << "a header each time";
    EXPECT_EQ(20,
              counts.at("com.kor.dal.nim.log.internal INFO Write : Changing logging setting: OutputStream"));
}

TEST(LogThreads, TwoLoggersMayReachForEachOthersFiles)
{
    const Folder folder;
    Write one;
    Write two;
    const Module ones(CIMOM_MODULE, one);
    const Module twos(CIMOM_MODULE, two);
    one.unregisterModule(ones);
    two.unregisterModule(twos);
    one.registerModule(twos);
    two.registerModule(ones);
    onThreads(
        [&](int number) {
            Write& mine = number % 2 == 0 ? one : two;
            for (int i = 0; i < 100; ++i) {
                mine.setStream("CIMOM");
                mine.setPath(folder / (number % 2 == 0 ? "one.log" : "two.log"));
            }
        },
        [] {});
    one.setPath(folder / "one.log");
    EXPECT_EQ(folder / "one.log", one.getPath());
}

// The owner may destroy its logger as soon as unregisterModule() has returned. Under a sanitizer, or
// perturbed, a lookup that releases the lock before it references the file fails within a few rounds.
TEST(LogThreads, ASharedFileIsTakenBeforeItsOwnerCanUnregister)
{
    constexpr int ROUNDS = 2000;
    Write borrower;
    std::atomic<bool> stop(false);
    std::atomic<int> shared(0);
    std::thread thread([&] {
        while (!stop) {
            try {
                borrower.setStream("CIMOM");
                ++shared;
            } catch (const std::invalid_argument& exc) {
                EXPECT_STREQ("CIMOM stream is not available", exc.what());
            }
            borrower.setStream("STDERR");
        }
    });
    for (int i = 0; i < ROUNDS || shared == 0; ++i) {
        const auto owner = std::make_unique<Write>();
        const Module module(CIMOM_MODULE, *owner);
        owner->unregisterModule(module);
        borrower.registerModule(module);
        if (i % 2 == 0) {
            std::this_thread::yield();
        }
        borrower.unregisterModule(module);
    }
    stop = true;
    thread.join();
    EXPECT_EQ(&asIos(std::cerr), borrower.getStream());
}

}
