// What a pool offers beside its tasks, when memory runs out or the system fails.

#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "log/Loggers.hpp"
#include "mt/Pools.hpp"

#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/mt/Watchdog.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <qv/rtlapi/RX_Exception.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <qv/Threads.hpp>

namespace {

using namespace faults;
using com::kor::dal::nim::String;
using com::kor::dal::nim::mt::PoolStatistics;
using com::kor::dal::nim::mt::RunningTasks;
using com::kor::dal::nim::mt::Task;
using com::kor::dal::nim::mt::ThreadPool;
using com::kor::dal::nim::mt::UnfinishedTasks;
using com::kor::dal::nim::mt::Watchdog;
using mttest::makePool;
using mttest::OwnTask;

/** A pool whose first handler counts its calls. */
struct HandledPool
{
    HandledPool()
    {
        pool->setExceptionHandler(
            [this](const Task*, const std::exception*, const std::exception_ptr&) { ++first; });
    }

    /** Runs a task that throws. */
    void fail() const
    {
        OwnTask task([] { throw std::runtime_error("failed"); });
        EXPECT_TRUE(pool->add(task));
        mttest::awaitEnd(task);
    }

    std::unique_ptr<ThreadPool> pool = makePool(1, 2);
    std::atomic<int> first{0};
    std::atomic<int> second{0};
};

TEST(PoolFault, HandlerIsReplacedOrRemains)
{
    EXPECT_GE(walkAllocations([] { return std::make_unique<HandledPool>(); },
                              [](std::unique_ptr<HandledPool>& handled) {
                                  HandledPool* const raw = handled.get();
                                  handled->pool->setExceptionHandler(
                                      [raw](const Task*, const std::exception*, const std::exception_ptr&) {
                                          ++raw->second;
                                      });
                              },
                              [](std::unique_ptr<HandledPool>& handled, bool done) {
                                  const int before = handled->first;
                                  handled->fail();
                                  EXPECT_EQ(done ? 1 : 0, handled->second);
                                  EXPECT_EQ(done ? before : before + 1, handled->first);
                              }),
              1U);
}

TEST(PoolFault, HandlerIsCalledWithoutMemory)
{
    const auto pool = makePool(1, 2);
    std::atomic<int> calls{0};
    pool->setExceptionHandler([&](const Task* task, const std::exception* known, const std::exception_ptr&) {
        calls += task != nullptr && known != nullptr ? 1 : 100;
    });
    OwnTask task([] {
        // Armed on the worker until the thread ends.
        static thread_local std::unique_ptr<Fault> noMemory;
        noMemory = std::make_unique<Fault>(Call::NEW, ENOMEM);
        throw 42;
    });
    EXPECT_TRUE(pool->add(task));
    mttest::awaitEnd(task);
    EXPECT_EQ(100, calls) << "not a std::exception, but called";
    EXPECT_EQ(1U, pool->exceptionCount());
    pool->shutdown(true);
}

TEST(PoolFault, StatisticsAreCollectedOrThePoolIsUnchanged)
{
    EXPECT_GE(walkAllocations([] { return makePool(2, 2); },
                              [](std::unique_ptr<ThreadPool>& pool) { pool->collectStatistics(); },
                              [](std::unique_ptr<ThreadPool>& pool, bool done) {
                                  EXPECT_EQ(done, pool->statistics().isCollecting);
                                  OwnTask task;
                                  const auto before = pool->statistics().finished;
                                  EXPECT_TRUE(pool->add(task));
                                  mttest::awaitEnd(task);
                                  EXPECT_EQ(done ? before + 1 : before, pool->statistics().finished);
                              }),
              2U);
}

/** A closure that is destroyed with a reference is reported with a line on standard error. */
TEST(PoolFault, ContextThatCannotBeDuplicatedForACollectingPoolIsNotReported)
{
    const std::unique_ptr<ThreadPool> pool = makePool(1, 2);
    pool->collectStatistics();
    const auto context = com::kor::dal::nim::type::ContainerContext::current();
    com::kor::dal::nim::type::ContainerContextRef(context)->add(
        com::kor::dal::nim::mem::RefCntObjectRef(new com::kor::dal::nim::mem::RefCntObject),
        com::kor::dal::nim::type::Context::allocateKey(1));
    testing::internal::CaptureStderr();
    unsigned int refused = 0;
    for (unsigned int n = 1; n <= 10; ++n) {
        OwnTask task([] {});
        Fault noMemory(Call::NEW, ENOMEM, n, 1);
        try {
            pool->add(task);
            noMemory.disarm();
            mttest::awaitEnd(task);
        } catch (const std::bad_alloc&) {
            noMemory.disarm();
            ++refused;
        }
    }
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_GE(refused, 2U);
    com::kor::dal::nim::type::ContainerContextRef(context)->clearContent();
}

TEST(PoolFault, AddToACollectingPoolQueuesTheTaskOrCountsItAsDiscarded)
{
    const auto pool = makePool(1, 2);
    pool->collectStatistics();
    struct Attempt
    {
        std::unique_ptr<OwnTask> task = std::make_unique<OwnTask>();
    };
    unsigned int done = 0;
    const unsigned int allocations =
        walkAllocations([] { return Attempt(); },
                        [&](Attempt& attempt) {
                            // A task that was not added remains TSF_QUEUED, and cannot be added again.
                            if (attempt.task->status() != Task::TSF_READY) {
                                attempt.task = std::make_unique<OwnTask>();
                            }
                            EXPECT_TRUE(pool->add(*attempt.task));
                        },
                        [&](Attempt& attempt, bool isAdded) {
                            if (isAdded) {
                                ++done;
                                mttest::awaitEnd(*attempt.task);
                            }
                            const PoolStatistics figures = pool->statistics();
                            EXPECT_EQ(done, figures.finished);
                            EXPECT_EQ(figures.submitted, figures.finished + figures.discarded);
                            EXPECT_EQ(0U, figures.pending);
                        });
    EXPECT_GE(allocations, 1U);
    pool->shutdown(true);
}

/** A pool with a task that runs until the end. */
struct OccupiedPool
{
    OccupiedPool()
    {
        pool->collectStatistics();
        EXPECT_TRUE(pool->add(running));
        EXPECT_TRUE(pool->add(new OwnTask(nullptr, &destroyed), true));
        entered.pass();
    }
    ~OccupiedPool()
    {
        leave.open();
        mttest::awaitEnd(running);
    }

    std::unique_ptr<ThreadPool> pool = makePool(1, 2);
    qvtest::Gate entered;
    qvtest::Gate leave;
    std::atomic<int> destroyed{0};
    UnfinishedTasks unfinished;
    OwnTask running{[this] {
        entered.open();
        leave.pass();
    }};
};

TEST(PoolFault, LimitedShutdownDescribesWhatRunsOrRunsOutOfMemory)
{
    EXPECT_GE(walkAllocations([] { return std::make_unique<OccupiedPool>(); },
                              [](std::unique_ptr<OccupiedPool>& occupied) {
                                  occupied->unfinished = occupied->pool->shutdownWithin(0);
                              },
                              [](std::unique_ptr<OccupiedPool>& occupied, bool done) {
                                  EXPECT_EQ(done ? 1U : 0U, occupied->unfinished.running.size());
                                  if (done) {
                                      EXPECT_EQ(1, occupied->destroyed);
                                  }
                              }),
              3U);
}

TEST(PoolFault, RunningTasksAreReturnedOrRunOutOfMemory)
{
    OccupiedPool occupied;
    EXPECT_GE(
        walkAllocations([] { return RunningTasks(); },
                        [&](RunningTasks& running) { running = occupied.pool->runningTasks(); },
                        [](RunningTasks& running, bool done) { EXPECT_EQ(done ? 1U : 0U, running.size()); }),
        2U);
}

TEST(PoolFault, WorkersKeepTheirNamesIfTheSystemCannotNameThem)
{
    OccupiedPool occupied;
    const auto nameOfTheWorker = [&] { return occupied.pool->runningTasks().at(0).threadName; };
    const String before = nameOfTheWorker();
    for (const Call call : {Call::OPEN, Call::WRITE}) {
        const Fault fault(call, EMFILE);
        errno = 0;
        occupied.pool->setKernelNames();
        EXPECT_EQ(0, errno);
        EXPECT_EQ(1U, fault.failed());
    }
    EXPECT_EQ(before, nameOfTheWorker());
    occupied.pool->setKernelNames();
    EXPECT_EQ(occupied.pool->name().substr(0, 15), nameOfTheWorker());
}

TEST(PoolFault, ThreadNameIsEmptyIfItCannotBeRead)
{
    OccupiedPool occupied;
    const Fault fault(Call::OPEN, EMFILE);
    errno = 0;
    const RunningTasks running = occupied.pool->runningTasks();
    EXPECT_EQ(0, errno);
    EXPECT_EQ(1U, fault.failed());
    ASSERT_EQ(1U, running.size());
    EXPECT_EQ("", running[0].threadName);
    EXPECT_EQ(occupied.running.taskId(), running[0].task);
}

/** A pool that is watched, with a task that has exceeded the limit. */
struct WatchedPool : OccupiedPool
{
    WatchedPool()
    {
        watchdog.setTaskLimit(1);
        watchdog.setQueueLimit(1);
        watchdog.watch(*pool);
        while (pool->runningTasks().at(0).milliseconds < 2) {
            std::this_thread::yield();
        }
    }

    Watchdog watchdog{1};
};

TEST(WatchdogFault, FindingIsLoggedOnceOrIsReportedAsLost)
{
    logtest::DefaultLogger logger;
    std::string text;
    testing::internal::CaptureStderr();
    EXPECT_GE(walkAllocations([] { return std::make_unique<WatchedPool>(); },
                              [&](std::unique_ptr<WatchedPool>& watched) { watched->watchdog.check(); },
                              [&](std::unique_ptr<WatchedPool>&, bool done) {
                                  text += logger.taken();
                                  if (!done) {
                                      return;
                                  }
                                  text += testing::internal::GetCapturedStderr();
                                  testing::internal::CaptureStderr();
                                  std::size_t findings = 0;
                                  for (const char* const part : {"has been running", "record was lost"}) {
                                      for (std::size_t at = text.find(part); at != std::string::npos;
                                           at = text.find(part, at + 1)) {
                                          ++findings;
                                      }
                                  }
                                  EXPECT_EQ(1U, findings) << text;
                                  text.clear();
                              }),
              5U);
    testing::internal::GetCapturedStderr();
}

TEST(WatchdogFault, PoolIsWatchedOrMemoryRunsOut)
{
    EXPECT_GE(walkAllocations([] { return std::make_unique<OccupiedPool>(); },
                              [](std::unique_ptr<OccupiedPool>& occupied) {
                                  Watchdog watchdog(1);
                                  watchdog.watch(*occupied->pool);
                              },
                              [](std::unique_ptr<OccupiedPool>&, bool) {}),
              4U);
}

TEST(WatchdogFault, ConditionThatCannotBeCreatedIsThrown)
{
    const Fault fault(Call::COND_INIT, EAGAIN);
    EXPECT_THROW(const Watchdog watchdog(1), RX_Exception);
}

TEST(PoolFault, StatisticsAreReadOrRunOutOfMemory)
{
    const ThreadPool pool("a name that is too long for the string object itself", 1, 0, 0, 0, 0, 2);
    EXPECT_EQ(1U, walkAllocations([] { return PoolStatistics(); },
                                  [&](PoolStatistics& figures) { figures = pool.statistics(); },
                                  [](PoolStatistics& figures, bool done) {
                                      EXPECT_EQ(done ? 1U : 0U, figures.workers);
                                  }));
}

}
