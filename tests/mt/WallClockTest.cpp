// Waits, clocks and records when the wall clock is stepped, and after January 2038. A separate program, since
// it replaces the wall clock.

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/Queue.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/sys/System.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <future>
#include <memory>

#include <qv/pmx/time.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/** Offset of the wall clock, in seconds. */
std::atomic<std::int64_t> offset{0};
/** The step, in seconds, after the next reading of the wall clock by this thread; 0 for none. */
thread_local std::int64_t stepAfterRead = 0;

void step(std::int64_t seconds) noexcept
{
    offset += seconds;
}

}

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    const int status = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) {
        now->tv_sec += offset;
        if (stepAfterRead != 0) {
            step(stepAfterRead);
            stepAfterRead = 0;
        }
    }
    return status;
}

extern "C" __attribute__((visibility("default"))) time_t time(time_t* result) noexcept
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

namespace {

using namespace com::kor::dal::nim;
using mt::CondSem;
using mt::Queue;
using mt::QueueElement;
using mt::SysMutex;
using mt::Task;
using sys::System;
typedef std::chrono::milliseconds Milliseconds;
typedef std::chrono::steady_clock Clock;

constexpr std::int64_t HOUR = 3600;
/** The first second of the year 2100. */
constexpr std::int64_t YEAR_2100 = 4102444800;
constexpr unsigned int WAIT_MS = 50;
/** Much longer than a wait of WAIT_MS on a busy machine, and much shorter than an hour. */
constexpr Milliseconds FAR_TOO_LONG(20000);

class Item : public QueueElement
{};

class Idle : public mt::Runnable
{
public:
    void run() override {}
};

class WallClockTest : public testing::Test
{
protected:
    ~WallClockTest() override
    {
        offset = 0;
    }

    static void stepTo2100()
    {
        step(YEAR_2100 - std::time(nullptr));
    }
};

/** The wall clock is stepped by the parameter: during the wait, and after the wait first reads that clock. */
class WaitsUnderAStepTest : public WallClockTest, public testing::WithParamInterface<std::int64_t>
{
protected:
    /** Checks that `wait` lasts for WAIT_MS; `wake` ends a wait that lasts too long. */
    static void expectItsDuration(const std::function<void()>& wait, const std::function<void()>& wake)
    {
        std::promise<void> begun;
        std::future<Clock::duration> elapsed = std::async(std::launch::async, [&] {
            stepAfterRead = GetParam();
            begun.set_value();
            const Clock::time_point start = Clock::now();
            wait();
            return Clock::now() - start;
        });
        begun.get_future().wait();
        step(GetParam());
        const bool isOver = elapsed.wait_for(FAR_TOO_LONG) == std::future_status::ready;
        EXPECT_TRUE(isOver) << "the wait was lengthened";
        if (!isOver) {
            wake();
        }
        EXPECT_GE(elapsed.get(), Milliseconds(WAIT_MS));
    }
};

TEST_P(WaitsUnderAStepTest, QueueNextKeepsItsDuration)
{
    Queue queue(1);
    expectItsDuration([&queue] { EXPECT_EQ(nullptr, queue.next(WAIT_MS)); }, [&queue] { queue.shutdown(); });
}

TEST_P(WaitsUnderAStepTest, QueueInsertKeepsItsDuration)
{
    Queue queue(1);
    ASSERT_TRUE(queue.insert(std::make_unique<Item>().release()));
    Item second;
    expectItsDuration([&] { EXPECT_FALSE(queue.insert(&second, WAIT_MS)); }, [&queue] { queue.shutdown(); });
}

TEST_P(WaitsUnderAStepTest, QueueNextReturnsAnElementThatIsInsertedAfterTheStep)
{
    Queue queue(1);
    std::promise<void> begun;
    std::future<QueueElement*> taken = std::async(std::launch::async, [&] {
        stepAfterRead = GetParam();
        begun.set_value();
        return queue.next(static_cast<unsigned int>(FAR_TOO_LONG.count()));
    });
    begun.get_future().wait();
    step(GetParam());
    EXPECT_EQ(std::future_status::timeout, taken.wait_for(Milliseconds(WAIT_MS))) << "the wait was shortened";
    Item item;
    ASSERT_TRUE(queue.insert(&item));
    EXPECT_EQ(&item, taken.get());
    queue.next(0);
}

TEST_P(WaitsUnderAStepTest, ConditionKeepsItsDuration)
{
    SysMutex mutex;
    const CondSem condition(mutex);
    expectItsDuration(
        [&] {
            mutex.acquire();
            EXPECT_FALSE(condition.wait(WAIT_MS));
            mutex.release();
        },
        [&condition] { condition.broadcast(); });
}

TEST_P(WaitsUnderAStepTest, TaskKeepsItsDuration)
{
    Idle work;
    Task task(work);
    expectItsDuration([&task] { task.waitForStateChange(WAIT_MS); }, [&task] { task.interrupt(2); });
}

TEST_P(WaitsUnderAStepTest, SleepKeepsItsDuration)
{
    expectItsDuration([] { System::sleep(WAIT_MS); }, [] {});
}

INSTANTIATE_TEST_SUITE_P(ByAnHourAndPast2038, WaitsUnderAStepTest,
                         testing::Values(HOUR, -HOUR, YEAR_2100 - std::int64_t{1700000000}));

TEST_F(WallClockTest, ClocksFollowTheStep)
{
    const TimeMS_t before = System::time();
    step(-HOUR);
    EXPECT_LT(System::time(), before - 3000000);
    step(2 * HOUR);
    EXPECT_GE(System::time(), before + 3600000);
}

TEST_F(WallClockTest, ClocksAreRightAfter2038)
{
    stepTo2100();
    constexpr std::int64_t A_MINUTE = 60;
    EXPECT_GE(System::time(), 4102444800000);
    EXPECT_LT(System::time(), 4102444800000 + A_MINUTE * 1000);
    EXPECT_GE(System::timeMillis(), 4102444800000);
    EXPECT_GE(System::timeMicros(), 4102444800000000);
    EXPECT_LT(System::timeMicros(), 4102444800000000 + A_MINUTE * 1000000);
    EXPECT_GE(System::dceTime(), 163217376000000000);
    EXPECT_LT(System::dceTime(), 163217376000000000 + A_MINUTE * 10000000);
}

TEST_F(WallClockTest, OnlyThePairOf32BitsSaturates)
{
    stepTo2100();
    si_timespec_t now = {};
    EXPECT_EQ(EOVERFLOW, qv_si_gettime(&now));
    EXPECT_EQ(2147483647, now.seconds);
    EXPECT_EQ(999999999, now.nanoseconds);
}

TEST_F(WallClockTest, RecordsShowTheDateAfter2038)
{
    stepTo2100();
    testing::internal::CaptureStderr();
    NIM_LOG_TO(log::Module::getInstance("clock", log::GET_NIM_LOG_LOGGER_VAR()), Severity_ERROR) << "late";
    const std::string record = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, record.find("Fri Jan 01 00:00:")) << record;
    EXPECT_NE(std::string::npos, record.find(" UTC 2100 ")) << record;
}

}
