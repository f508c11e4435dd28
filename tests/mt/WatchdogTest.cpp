#include <dalnim/mt/Watchdog.hpp>

#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/ThreadReport.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

#include <log/Loggers.hpp>
#include <qv/Threads.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using logtest::DefaultLogger;
using mttest::awaitEnd;
using mttest::Call;
using mttest::Occupation;
using mttest::OwnTask;
using mttest::OwnThread;
using nim::mt::Task;
using nim::mt::Thread;
using nim::mt::ThreadPool;
using nim::mt::Watchdog;
using nim::sys::StackTrack;
using nim::sys::ThreadReport;
using nim::sys::internal::ThreadState;
using qvtest::Caller;
using qvtest::Gate;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
typedef std::chrono::steady_clock Clock;

const std::string PREFIX = "com.kor.dal.nim WARNING Watchdog : ";
constexpr unsigned int PERIOD = 1;

/** A task with a name that runs in a track until it is released. */
class StuckTask : public Task
{
public:
    explicit StuckTask(const char* name) : Task(name) {}

    void run() override
    {
        const StackTrack track("scan()", "Index", "shop", 12);
        thread = gettid();
        entered.open();
        leave.pass();
    }

    /** Lets the task end, and waits for it. */
    void end()
    {
        leave.open();
        awaitEnd(*this);
    }

    Gate entered;
    Gate leave;
    nim::ThreadID_t thread = 0;
};

/** Waits until more time has passed than a limit of a millisecond. */
void exceedLimit()
{
    const Clock::time_point start = Clock::now();
    while (Clock::now() - start < std::chrono::milliseconds(3)) {
        std::this_thread::yield();
    }
}

/** A stream that one thread writes while another one reads. */
class SharedStream : private std::streambuf, public std::ostream
{
public:
    SharedStream() : std::ostream(static_cast<std::streambuf*>(this)) {}

    /** Waits until a text has been written. */
    void awaitText(const std::string& part)
    {
        std::unique_lock<std::mutex> guard(mutex);
        changed.wait(guard, [&] { return text.find(part) != std::string::npos; });
    }

private:
    int overflow(int character) override
    {
        const char written = static_cast<char>(character);
        return xsputn(&written, 1) == 1 ? character : std::char_traits<char>::eof();
    }
    std::streamsize xsputn(const char* written, std::streamsize size) override
    {
        const std::lock_guard<std::mutex> guard(mutex);
        text.append(written, static_cast<std::size_t>(size));
        changed.notify_all();
        return size;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::string text;
};

class WatchdogTest : public testing::Test
{
protected:
    std::string found()
    {
        watchdog.check();
        return logger.taken();
    }

    /** Waits until all threads answer in time: the machine may be busy. */
    static void awaitAnswers()
    {
        while (ThreadReport().silent() != 0) {
        }
    }
    /** Checks until a text is logged, on a machine that may be busy, and returns what was logged. */
    std::string awaitFinding(const std::string& part)
    {
        std::string text;
        while (text.find(part) == std::string::npos) {
            text += found();
        }
        return text;
    }

    DefaultLogger logger;
    const std::unique_ptr<Watchdog> ownWatchdog = std::make_unique<Watchdog>(PERIOD);
    const std::unique_ptr<ThreadPool> ownPool = std::make_unique<ThreadPool>("orders", 2, 0U, 0U, 0U, 0U, 5U);
    Watchdog& watchdog = *ownWatchdog;
    ThreadPool& pool = *ownPool;
};

TEST_F(WatchdogTest, LogsNothingWithoutLimits)
{
    watchdog.watch(pool);
    StuckTask task("reindex");
    EXPECT_TRUE(pool.add(task));
    task.entered.pass();
    exceedLimit();
    EXPECT_EQ("", found());
    task.end();
    EXPECT_EQ("", found());
}

TEST_F(WatchdogTest, LogsNothingBelowTheLimits)
{
    ThreadReport::install();
    watchdog.setTaskLimit(600000);
    watchdog.setQueueLimit(600000);
    watchdog.setTrackLimit(600000);
    watchdog.watch(pool);
    Occupation both(pool, 2);
    OwnTask queued;
    EXPECT_TRUE(pool.add(queued));
    EXPECT_EQ("", found());
    exceedLimit();
    EXPECT_EQ("", found());
    both.end();
    pool.shutdown(true);
    EXPECT_EQ("", found());
}

TEST_F(WatchdogTest, LogsATaskOnceWithItsTracksAndAgainAtItsEnd)
{
    ThreadReport::install();
    awaitAnswers();
    watchdog.setTaskLimit(1);
    watchdog.watch(pool);
    StuckTask task("reindex");
    EXPECT_TRUE(pool.add(task));
    task.entered.pass();
    exceedLimit();
    const std::string label = "Task 'reindex' \\(" + std::to_string(task.taskId()) + "\\) of pool 'orders' ";
    EXPECT_THAT(found(),
                MatchesRegex(PREFIX + label + "has been running for [0-9]+ ms on thread "
                             + std::to_string(task.thread) + "\n  \\[0\\]\tshop\\.Index\\.scan\\(\\):12\n"));
    EXPECT_EQ("", found()) << "once";
    task.end();
    EXPECT_THAT(found(), MatchesRegex(PREFIX + label + "has ended after at most [0-9]+ ms\n"));
    EXPECT_EQ("", found());
}

TEST_F(WatchdogTest, LogsTasksWithoutTracksUnlessReportsAreInstalled)
{
    if (ThreadReport::realTimeSignal() != 0) {
        GTEST_SKIP() << "an earlier test of this process has installed reports";
    }
    watchdog.setTaskLimit(1);
    watchdog.setTrackLimit(1);
    watchdog.watch(pool);
    StuckTask task("reindex");
    EXPECT_TRUE(pool.add(task));
    task.entered.pass();
    exceedLimit();
    EXPECT_THAT(found(), MatchesRegex(PREFIX + "Task 'reindex' .* ms on thread [0-9]+\n"));
    task.end();
}

TEST_F(WatchdogTest, LogsTheNextTaskOfTheSameWorker)
{
    watchdog.setTaskLimit(1);
    watchdog.watch(pool);
    ThreadPool single("single", 1, 0, 0, 0, 0, 5);
    watchdog.watch(single);
    StuckTask first("first");
    StuckTask second("second");
    EXPECT_TRUE(single.add(first));
    EXPECT_TRUE(single.add(second));
    first.entered.pass();
    exceedLimit();
    EXPECT_THAT(found(), HasSubstr("Task 'first' "));
    first.end();
    second.entered.pass();
    exceedLimit();
    const std::string text = found();
    EXPECT_THAT(text, HasSubstr("Task 'first' "));
    EXPECT_THAT(text, HasSubstr("has ended after at most "));
    EXPECT_THAT(text, HasSubstr("Task 'second' "));
    second.end();
}

TEST_F(WatchdogTest, LogsAQueueThatDoesNotMoveWithTheRunningTasks)
{
    ThreadReport::install();
    awaitAnswers();
    watchdog.setQueueLimit(1);
    watchdog.watch(pool);
    StuckTask first("first");
    StuckTask second("second");
    EXPECT_TRUE(pool.add(first));
    EXPECT_TRUE(pool.add(second));
    first.entered.pass();
    second.entered.pass();
    EXPECT_EQ("", found());
    exceedLimit();
    EXPECT_EQ("", found()) << "no task waits";
    OwnTask waiting;
    EXPECT_TRUE(pool.add(waiting));
    const std::string text = awaitFinding("Queue of pool");
    EXPECT_THAT(text,
                MatchesRegex(
                    PREFIX
                    + "Queue of pool 'orders' has not moved for [0-9]+ ms: 1 tasks wait, 2 run\n"
                      "  task '(first|second)' \\([0-9]+\\) has been running for [0-9]+ ms on thread [0-9]+\n"
                      "  \\[0\\]\tshop\\.Index\\.scan\\(\\):12\n"
                      "  task '(first|second)' \\([0-9]+\\) has been running for [0-9]+ ms on thread [0-9]+\n"
                      "  \\[0\\]\tshop\\.Index\\.scan\\(\\):12\n"));
    EXPECT_THAT(text, HasSubstr("task 'first'"));
    EXPECT_THAT(text, HasSubstr("task 'second'"));
    exceedLimit();
    EXPECT_EQ("", found()) << "once";
    first.end();
    awaitEnd(waiting);
    EXPECT_THAT(found(),
                MatchesRegex(PREFIX + "Queue of pool 'orders' moves again after at most [0-9]+ ms\n"));
    EXPECT_EQ("", found());
    second.end();
}

TEST_F(WatchdogTest, LogsAThreadThatStaysInOneTrackAndAgainWhenItLeaves)
{
    ThreadReport::install();
    watchdog.setTrackLimit(1);
    Gate entered;
    Gate leave;
    Gate left;
    Gate end;
    nim::ThreadID_t id = 0;
    OwnThread thread([&] {
        id = gettid();
        {
            const StackTrack outer("serve()", "Shop", "shop", 3);
            const StackTrack inner("scan()", "Index", "shop", 12);
            entered.open();
            leave.pass();
        }
        left.open();
        end.pass();
    });
    thread.start();
    entered.pass();
    EXPECT_THAT(found(), Not(HasSubstr(std::to_string(id)))) << "the first report of this track";
    const std::string label = PREFIX + "Thread " + std::to_string(id) + " '";
    std::string text = awaitFinding(label);
    EXPECT_THAT(text, HasSubstr(label));
    EXPECT_THAT(text, HasSubstr("' has been in one track for "));
    EXPECT_THAT(text, HasSubstr(" ms, in task '" + thread.name() + "' (" + std::to_string(thread.taskId())
                                + ")\n  [0]\tshop.Index.scan():12\n  [1]\tshop.Shop.serve():3\n"));
    EXPECT_THAT(found(), Not(HasSubstr(std::to_string(id)))) << "once";
    leave.open();
    left.pass();
    text = awaitFinding(label);
    EXPECT_THAT(text, HasSubstr(label));
    EXPECT_THAT(text, HasSubstr("' has left its track; it was in it for at least "));
    EXPECT_THAT(found(), Not(HasSubstr(std::to_string(id))));
    end.open();
    EXPECT_EQ(nullptr, thread.join());
}

/** In the order of the report, one of them is before the thread that was logged, the other one after it. */
TEST_F(WatchdogTest, LogsThreadsThatAreStuckAfterAnotherWasLogged)
{
    ThreadReport::install();
    watchdog.setTrackLimit(1);
    Gate started;
    Gate enter;
    Gate entered[3];
    Gate leave;
    const auto stuck = [&](const char* name, Gate& gate) {
        const StackTrack track(name, "Index", "shop", 12);
        gate.open();
        leave.pass();
    };
    Caller early([&] {
        ThreadState::current();
        started.open();
        enter.pass();
        stuck("early()", entered[0]);
    });
    started.pass();
    Caller logged([&] { stuck("logged()", entered[1]); });
    entered[1].pass();
    EXPECT_THAT(awaitFinding("Thread " + std::to_string(logged.tid()) + " '"), HasSubstr("logged():12"));
    Caller late([&] { stuck("late()", entered[2]); });
    enter.open();
    entered[0].pass();
    entered[2].pass();
    std::string text;
    for (int i = 0;
         i < 1000
         && (text.find("early():12") == std::string::npos || text.find("late():12") == std::string::npos);
         ++i) {
        exceedLimit();
        text += found();
    }
    EXPECT_THAT(text, HasSubstr("early():12"));
    EXPECT_THAT(text, HasSubstr("late():12"));
    leave.open();
}

TEST_F(WatchdogTest, LogsAThreadThatEndsInsteadOfLeavingItsTrack)
{
    ThreadReport::install();
    watchdog.setTrackLimit(1);
    nim::ThreadID_t id = 0;
    {
        Gate entered;
        Gate leave;
        Caller thread([&] {
            const StackTrack track("scan()", "Index", "shop", 12);
            entered.open();
            leave.pass();
        });
        entered.pass();
        id = thread.tid();
        awaitFinding("Thread " + std::to_string(id) + " '");
        leave.open();
    }
    awaitFinding("Thread " + std::to_string(id) + " '");
}

TEST_F(WatchdogTest, DoesNotLogItsOwnThread)
{
    ThreadReport::install();
    watchdog.setTrackLimit(1);
    const StackTrack track("main()", "Program", "shop", 1);
    found();
    exceedLimit();
    EXPECT_THAT(found(), Not(HasSubstr(std::to_string(gettid()))));
}

TEST_F(WatchdogTest, PoolThatIsWatchedTwiceIsLoggedOnce)
{
    watchdog.setTaskLimit(1);
    watchdog.watch(pool);
    watchdog.watch(pool);
    StuckTask task("reindex");
    EXPECT_TRUE(pool.add(task));
    task.entered.pass();
    exceedLimit();
    const std::string text = found();
    EXPECT_EQ(text.find("Task 'reindex'"), text.rfind("Task 'reindex'"));
    task.end();
}

TEST_F(WatchdogTest, PoolMayBeDestroyedWhileItIsWatched)
{
    watchdog.setTaskLimit(1);
    auto abandoned = std::make_unique<ThreadPool>("abandoned", 1, 0, 0, 0, 0, 5);
    watchdog.watch(*abandoned);
    StuckTask task("reindex");
    EXPECT_TRUE(abandoned->add(task));
    task.entered.pass();
    EXPECT_EQ(1U, abandoned->shutdownWithin(0).running.size());
    abandoned.reset();
    exceedLimit();
    EXPECT_THAT(found(), HasSubstr("of pool 'abandoned' has been running for "));
    task.end();
    EXPECT_THAT(found(), HasSubstr("of pool 'abandoned' has ended after "));
    EXPECT_EQ("", found());
}

TEST_F(WatchdogTest, RunChecksUntilItIsStopped)
{
    watchdog.setTaskLimit(1);
    watchdog.watch(pool);
    StuckTask task("reindex");
    EXPECT_TRUE(pool.add(task));
    task.entered.pass();
    SharedStream stream;
    logger->setStream(logtest::asIos(stream));
    Thread thread(watchdog, true, "watchdog");
    thread.start();
    stream.awaitText("Task 'reindex'");
    task.end();
    stream.awaitText("has ended after at most");
    watchdog.stop();
    EXPECT_EQ(nullptr, thread.join());
    watchdog.run();
}

TEST_F(WatchdogTest, StopInterruptsALongPeriod)
{
    Watchdog slow(600000);
    Caller runner([&] { slow.run(); });
    EXPECT_TRUE(runner.awaitAsleep());
    slow.stop();
    runner.join();
}

TEST_F(WatchdogTest, IsConfiguredWhileItRuns)
{
    Thread thread(watchdog, true, "watchdog");
    thread.start();
    for (unsigned int i = 0; i < 50; ++i) {
        ThreadPool temporary("temporary", 2, 0, 0, 0, 0, 5);
        watchdog.setTaskLimit(i % 2 * 600000);
        watchdog.setQueueLimit(i % 3 * 600000);
        watchdog.watch(temporary);
        for (int j = 0; j < 20; ++j) {
            temporary.add(new OwnTask, true);
        }
        temporary.shutdownWithin(600000);
    }
    watchdog.stop();
    EXPECT_EQ(nullptr, thread.join());
}

}
