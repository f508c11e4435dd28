#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/mem/RefCntObject.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Model.hpp"
#include "Work.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::ModelSeed;
using mttest::OwnTask;
using mttest::Work;
using nim::mt::Task;
using nim::mt::ThreadPool;

/** A reference-counted task. */
class CountedTask : public OwnTask, public nim::mem::RefCntObject
{
public:
    using OwnTask::OwnTask;
    ~CountedTask() noexcept override = default;
};

/** Records the results of the tasks of several submitters. */
class Ledger
{
public:
    static constexpr int SUBMITTERS = 4;

    explicit Ledger(int operations)
        : perSubmitter(operations / SUBMITTERS), runs(static_cast<std::size_t>(SUBMITTERS * perSubmitter)),
          last(SUBMITTERS)
    {
        for (std::atomic<int>& previous : last) {
            previous = -1;
        }
    }

    /** Records a run. Called on a worker. */
    void recordRun(int submitter, int number)
    {
        ++runs[static_cast<std::size_t>(submitter * perSubmitter + number)];
        disordered += last[static_cast<std::size_t>(submitter)].exchange(number) >= number;
    }

    /** Records that a task was rejected. */
    void recordRejection(int submitter, int number)
    {
        ++rejected;
        // Counted as a run, so that each task must have exactly one.
        ++runs[static_cast<std::size_t>(submitter * perSubmitter + number)];
    }

    /** Returns the number of tasks that neither ran once nor were rejected. */
    int lostOrDuplicated() const
    {
        int count = 0;
        for (const std::atomic<unsigned char>& times : runs) {
            count += times != 1;
        }
        return count;
    }

    const int perSubmitter;
    std::atomic<int> disordered{0};
    std::atomic<int> rejected{0};
    std::atomic<int> destroyed{0};

private:
    std::vector<std::atomic<unsigned char>> runs;
    /** The number of the last task of each submitter that ran. */
    std::vector<std::atomic<int>> last;
};

/** Submits tasks of every kind by every operation. */
class Submitter
{
public:
    Submitter(ThreadPool& itsPool, Ledger& itsLedger, int itsNumber, std::mt19937 generator)
        : pool(itsPool), ledger(itsLedger), number(itsNumber), random(generator)
    {
    }

    void run()
    {
        for (int i = 0; i < ledger.perSubmitter; ++i) {
            const bool block = random() % 3 != 0;
            const bool fails = random() % 8 == 0;
            // The task may outlive its submitter.
            const auto call = [&results = ledger, submitter = number, i, fails] {
                results.recordRun(submitter, i);
                if (fails) {
                    throw std::runtime_error("dropped");
                }
            };
            if (!submit(call, block)) {
                EXPECT_FALSE(block);
                ledger.recordRejection(number, i);
            }
        }
    }

private:
    bool submit(const mttest::Call& call, bool block)
    {
        switch (random() % 4) {
        case 0:
            return submitAndWait(call, block);
        case 1:
            return submitCounted(call, block);
        case 2:
            return submitManaged(std::make_unique<Task>(new Work(call, &ledger.destroyed), true), block);
        default:
            return submitManaged(std::make_unique<OwnTask>(call, &ledger.destroyed), block);
        }
    }

    bool submitManaged(std::unique_ptr<Task> task, bool block)
    {
        const bool added = pool.add(task.get(), true, block);
        if (added) {
            task.release();
        } else {
            EXPECT_EQ(Task::TSF_READY, task->status());
        }
        return added;
    }

    bool submitCounted(const mttest::Call& call, bool block)
    {
        const nim::mem::RcoRef<CountedTask> task(new CountedTask(call, &ledger.destroyed));
        return pool.add(const_cast<CountedTask*>(task.get()), true, block);
    }

    /** Submits a task that the caller owns, and waits for its end. */
    bool submitAndWait(const mttest::Call& call, bool block)
    {
        OwnTask task(call, &ledger.destroyed);
        if (!pool.add(task, block)) {
            return false;
        }
        while (task.status() != Task::TSF_FINISHED) {
            task.waitForStateChange(1);
        }
        return true;
    }

    ThreadPool& pool;
    Ledger& ledger;
    const int number;
    std::mt19937 random;
};

/** Submits the tasks of all submitters to a pool with `workers` workers, and shuts it down. */
void submitAll(Ledger& ledger, unsigned int workers, const ModelSeed& seed)
{
    ThreadPool pool(nullptr, workers, 0, 0, 0, 0, 8);
    std::vector<std::thread> threads;
    for (int i = 0; i < Ledger::SUBMITTERS; ++i) {
        threads.emplace_back([&, i] { Submitter(pool, ledger, i, seed.random(i)).run(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    pool.shutdown(true);
}

TEST(ThreadPoolModel, RunsEachAdmittedTaskOnce)
{
    const ModelSeed seed;
    SCOPED_TRACE(seed.text());
    Ledger ledger(mttest::modelOperations());
    submitAll(ledger, 3, seed);
    EXPECT_EQ(0, ledger.lostOrDuplicated());
    EXPECT_EQ(ledger.perSubmitter * Ledger::SUBMITTERS, ledger.destroyed);
    EXPECT_LT(ledger.rejected, ledger.destroyed);
}

TEST(ThreadPoolModel, TasksOfOneThreadRunInOrder)
{
    const ModelSeed seed;
    SCOPED_TRACE(seed.text());
    Ledger ledger(mttest::modelOperations());
    submitAll(ledger, 1, seed);
    EXPECT_EQ(0, ledger.lostOrDuplicated());
    EXPECT_EQ(0, ledger.disordered);
    EXPECT_EQ(ledger.perSubmitter * Ledger::SUBMITTERS, ledger.destroyed);
}

TEST(ThreadPoolModel, AccountsForEachTaskAtItsEnd)
{
    for (int round = 0; round < 30; ++round) {
        std::atomic<int> made{0};
        std::atomic<int> destroyed{0};
        std::atomic<int> runs{0};
        auto pool = std::make_unique<ThreadPool>(nullptr, 3U, 0U, 0U, 0U, 0U, 4U);
        std::vector<std::thread> submitters;
        for (int i = 0; i < 3; ++i) {
            submitters.emplace_back([&] {
                for (;;) {
                    auto task = std::make_unique<OwnTask>([&] { ++runs; }, &destroyed);
                    ++made;
                    try {
                        pool->add(task.get(), true);
                        task.release();
                    } catch (const std::logic_error&) {
                        return;
                    }
                }
            });
        }
        while (runs < 50) {
            std::this_thread::yield();
        }
        pool->shutdown(false);
        for (std::thread& submitter : submitters) {
            submitter.join();
        }
        pool.reset();
        while (destroyed != made) {
            std::this_thread::yield();
        }
        EXPECT_LE(runs, made);
    }
}

}
