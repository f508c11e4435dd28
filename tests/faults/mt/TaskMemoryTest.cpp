#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/mt/src/BlockAllocator.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <future>
#include <limits>
#include <malloc.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include <faults/layer/Fault.hpp>
#include <support/PeakMemory.hpp>
#include <support/Sanitizers.hpp>

namespace {

namespace mt = com::kor::dal::nim::mt;
using faults::Call;
using faults::Fault;

class OwnTask : public mt::Task
{
public:
    OwnTask() : Task("a name in a block") {}
    void run() override {}
};

/** Too large for the blocks that are cached. */
class LargeTask : public OwnTask
{
public:
    char data[mt::BlockAllocator::LARGEST_BLOCK] = {};
};

/** So large that a magazine of its size class would be outside of all memory. */
class HugeTask : public OwnTask
{
public:
    HugeTask() {} // NOLINT(modernize-use-equals-default): leaves the data uninitialised

    char data[std::size_t{256} << 20];
};

/** Occupies its worker until it is released. */
class Gate : public OwnTask
{
public:
    void run() override
    {
        open.get_future().wait();
    }

    std::promise<void> open;
};

typedef std::vector<std::unique_ptr<mt::Task>> Tasks;

Tasks createTasks(std::size_t count)
{
    Tasks tasks;
    tasks.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        tasks.push_back(std::make_unique<OwnTask>());
    }
    return tasks;
}

void destroyOnAnotherThread(Tasks tasks)
{
    std::thread([&tasks] { tasks.clear(); }).join();
}

/** Counts the calls of operator new on this thread. */
class NewCalls
{
public:
    unsigned int count() const noexcept
    {
        return fault.calls();
    }

private:
    const Fault fault{Call::NEW, ENOMEM, std::numeric_limits<unsigned int>::max(), 1};
};

/** Runs many tasks, all of which are pending before the first one runs. */
void runBurst()
{
    constexpr unsigned int TASKS = 50000;
    mt::ThreadPool pool(nullptr, 2, 0, 0, 0, 0, TASKS + 2);
    Gate gates[2];
    for (Gate& gate : gates) {
        pool.add(gate);
    }
    for (unsigned int i = 0; i < TASKS; ++i) {
        pool.add(new OwnTask, true);
    }
    for (Gate& gate : gates) {
        gate.open.set_value();
    }
    pool.shutdown(true);
}

std::size_t allocatedBytes()
{
    return mallinfo2().uordblks;
}

TEST(TaskMemory, TasksThatAnotherThreadHasDestroyedAreAllocatedWithoutTheGlobalOperatorNew)
{
    if (support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "nothing is cached under the address sanitizer";
    }
    constexpr std::size_t TASKS = 200;
    // The other thread retains one magazine of at most 62 blocks, and frees it when it exits.
    destroyOnAnotherThread(createTasks(TASKS + 62));
    Tasks tasks;
    tasks.reserve(TASKS);
    const NewCalls calls;
    for (std::size_t i = 0; i < TASKS; ++i) {
        tasks.push_back(std::make_unique<OwnTask>());
    }
    EXPECT_EQ(0U, calls.count());
}

TEST(TaskMemory, MemoryThatABurstOfTasksLeavesIsLimited)
{
    if (!support::measuresMemory()) {
        GTEST_SKIP() << "a sanitizer or valgrind allocates memory itself";
    }
    // What the C library adds to each block, and the magazines.
    constexpr std::size_t OTHER_MEMORY = std::size_t{1} << 20;
    const std::size_t before = allocatedBytes();
    for (int i = 0; i < 3; ++i) {
        runBurst();
        EXPECT_LE(allocatedBytes(), before + mt::BlockAllocator::DEPOT_LIMIT + OTHER_MEMORY);
    }
}

TEST(TaskMemory, ThreadThatExitsLeavesNoBlocks)
{
    if (!support::measuresMemory()) {
        GTEST_SKIP() << "a sanitizer or valgrind allocates memory itself";
    }
    // Less than a magazine each: nothing reaches the depot.
    constexpr std::size_t TASKS = 60;
    // More tasks than the depot may contain from other tests, which would hide a leak.
    constexpr std::size_t THREADS = 3 * mt::BlockAllocator::DEPOT_LIMIT / (TASKS * sizeof(OwnTask));
    destroyOnAnotherThread(createTasks(TASKS));
    const std::size_t before = allocatedBytes();
    for (std::size_t i = 0; i < THREADS; ++i) {
        destroyOnAnotherThread(createTasks(TASKS));
    }
    EXPECT_LE(allocatedBytes(), before + (std::size_t{64} << 10));
}

TEST(TaskMemory, LargeTasksAreNotCached)
{
    const std::size_t before = allocatedBytes();
    const NewCalls calls;
    for (int i = 0; i < 3; ++i) {
        std::make_unique<LargeTask>()->data[0] = 'x';
        std::unique_ptr<HugeTask>(new HugeTask)->data[0] = 'x';
    }
    EXPECT_GE(calls.count(), 6U);
    if (support::measuresMemory()) {
        // The blocks of the names may be cached.
        EXPECT_LE(allocatedBytes(), before + 4096);
    }
}

TEST(TaskMemory, NothrowNewReturnsNullIfMemoryRunsOut)
{
    const Fault fault(Call::NEW, ENOMEM);
    const std::unique_ptr<mt::Task> task(new (std::nothrow) LargeTask);
    EXPECT_EQ(nullptr, task);
}

TEST(TaskMemory, NewThrowsIfMemoryRunsOut)
{
    const Fault fault(Call::NEW, ENOMEM);
    EXPECT_THROW(std::make_unique<LargeTask>(), std::bad_alloc);
}

TEST(TaskMemory, TaskWithoutMemoryForItsNameIsNotCreated)
{
    // Drains the blocks that this thread and the depot have cached.
    Tasks tasks;
    tasks.reserve(100000);
    Fault fault(Call::NEW, ENOMEM);
    EXPECT_THROW(
        {
            for (;;) {
                tasks.push_back(std::make_unique<OwnTask>());
            }
        },
        std::bad_alloc);
    fault.disarm();
}

TEST(TaskMemory, ConstructorThatThrowsFreesTheBlock)
{
    mt::Runnable* const none = nullptr;
    EXPECT_THROW(std::make_unique<mt::Task>(none, false), std::logic_error);
    EXPECT_THROW(static_cast<void>(std::unique_ptr<mt::Task>(new (std::nothrow) mt::Task(none, false))),
                 std::logic_error);
}

}
