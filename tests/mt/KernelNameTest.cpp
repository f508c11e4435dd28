#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <pthread.h>

#include <qv/Threads.hpp>
#include <support/Files.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::makePool;
using mttest::Occupation;
using mttest::OwnTask;
using mttest::Work;
using nim::mt::RunningTask;
using nim::mt::Task;
using nim::mt::Thread;
using nim::mt::ThreadPool;
using qvtest::Gate;

/** Returns the name of the calling thread in the kernel. */
std::string ownName()
{
    char name[16] = {};
    EXPECT_EQ(0, pthread_getname_np(pthread_self(), name, sizeof name));
    return name;
}

/** Returns the name that a task finds on a worker. */
std::string nameOnWorker(ThreadPool& pool)
{
    std::string name;
    OwnTask task([&] { name = ownName(); });
    EXPECT_TRUE(pool.add(task));
    awaitEnd(task);
    return name;
}

/** Returns the name that a thread with a name finds. */
std::string nameOnThread(const char* name, bool isSet)
{
    std::string found;
    Work work([&] { found = ownName(); });
    Thread thread(work, true, name);
    thread.setKernelName(isSet);
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
    return found;
}

TEST(KernelName, ThreadsHaveTheNameOfTheirStarterByDefault)
{
    std::string onThread;
    Work work([&] { onThread = ownName(); });
    Thread thread(work, true, "unseen");
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(ownName(), onThread);
    EXPECT_EQ(ownName(), nameOnThread("unseen", false));
    ThreadPool pool("unseen", 1, 0, 0, 0, 0, 2);
    EXPECT_EQ(ownName(), nameOnWorker(pool));
}

TEST(KernelName, ThreadHasItsNameWhenItRuns)
{
    EXPECT_EQ("watch", nameOnThread("watch", true));
    EXPECT_EQ("exactly-fifteen", nameOnThread("exactly-fifteen", true));
    EXPECT_EQ("sixteen-bytes-l", nameOnThread("sixteen-bytes-lo", true));
    EXPECT_EQ(ownName(), nameOnThread("", true)) << "an empty name changes nothing";
}

TEST(KernelName, NameIsTruncatedInFrontOfACutCharacter)
{
    EXPECT_EQ("thirteen-byte", nameOnThread("thirteen-byte\xE2\x82\xAC", true))
        << "would be cut after 2 of 3 bytes";
    EXPECT_EQ("twelve-bytes\xE2\x82\xAC", nameOnThread("twelve-bytes\xE2\x82\xAC", true));
    EXPECT_EQ("twelve-bytes\xE2\x82\xAC", nameOnThread("twelve-bytes\xE2\x82\xAC, more", true));
    EXPECT_EQ("fourteen-bytes", nameOnThread("fourteen-bytes\xC3\xA4", true));
}

TEST(KernelName, DetachedThreadHasItsName)
{
    std::string found;
    Work work([&] { found = ownName(); });
    Thread thread(work, false, "detached");
    thread.setKernelName();
    thread.start();
    awaitEnd(thread);
    EXPECT_EQ("detached", found);
}

TEST(KernelName, ThreadThatIsStartedAgainHasThePresentSetting)
{
    std::string found;
    Work work([&] { found = ownName(); });
    Thread thread(work, true, "again");
    thread.setKernelName();
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ("again", found);
    thread.setKernelName(false);
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(ownName(), found);
}

TEST(KernelName, AllWorkersHaveTheNameOfThePool)
{
    ThreadPool pool("a name of the pool", 3, 0, 0, 0, 0, 5);
    pool.setKernelNames();
    Occupation all(pool, 3);
    const std::vector<RunningTask> running = pool.runningTasks();
    ASSERT_EQ(3U, running.size());
    for (const RunningTask& task : running) {
        EXPECT_EQ("a name of the p", task.threadName);
        EXPECT_EQ("a name of the p\n",
                  support::readFile("/proc/self/task/" + std::to_string(task.thread) + "/comm"));
    }
    all.end();
    EXPECT_EQ("a name of the p", nameOnWorker(pool));
}

TEST(KernelName, BusyWorkersAreNamedAsWell)
{
    ThreadPool pool("requests", 2, 0, 0, 0, 0, 5);
    std::string before;
    std::string after;
    Gate entered;
    Gate leave;
    OwnTask busy([&] {
        before = ownName();
        entered.open();
        leave.pass();
        after = ownName();
    });
    EXPECT_TRUE(pool.add(busy));
    entered.pass();
    pool.setKernelNames();
    leave.open();
    awaitEnd(busy);
    EXPECT_EQ(ownName(), before);
    EXPECT_EQ("requests", after);
    EXPECT_NE("requests", ownName()) << "the calling thread keeps its name";
}

TEST(KernelName, WorkerThatReplacesAnotherOneIsNamed)
{
    ThreadPool pool("replaced", 1, 0, 0, 0, 0, 5);
    pool.setKernelNames();
    OwnTask leaving([] { pthread_exit(nullptr); });
    EXPECT_TRUE(pool.add(leaving));
    awaitEnd(leaving);
    EXPECT_EQ("replaced", nameOnWorker(pool));
}

TEST(KernelName, NamesAreSetWhileWorkersStartAndEnd)
{
    for (int round = 0; round < 100; ++round) {
        ThreadPool pool("round", 4, 0, 0, 0, 0, 5);
        pool.setKernelNames();
        if (round % 2 == 0) {
            EXPECT_EQ("round", nameOnWorker(pool));
        }
        pool.shutdownWithin(60000);
        pool.setKernelNames();
    }
}

}
