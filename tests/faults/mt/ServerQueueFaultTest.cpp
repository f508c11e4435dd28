// RX_ServerQueue when memory runs out, without a pool. The runtime's warning that a reference-counted object
// is destroyed while it is referenced must not be printed for an object whose construction failed.

#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_Closure0S.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_ServerQueue.hpp>
#include <qv/rtlapi/Reference.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>

#include <qv/Threads.hpp>

namespace {

using namespace faults;

/** Returns what an operation writes to standard error. */
template <class Operation>
std::string errorOutputOf(Operation operation)
{
    testing::internal::CaptureStderr();
    operation();
    return testing::internal::GetCapturedStderr();
}

/** A closure that counts its living objects and its runs. */
class Counted : public RX_Closure
{
public:
    Counted(std::atomic<int>& aliveCount, std::atomic<int>& runCount) : alive(aliveCount), runs(runCount)
    {
        ++alive;
    }

    void apply() override
    {
        ++runs;
    }

protected:
    ~Counted() noexcept(false) override
    {
        --alive;
    }

private:
    std::atomic<int>& alive;
    std::atomic<int>& runs;
};

/** A queue with its recorder. */
struct Subject
{
    Subject() : queue(new RX_ServerQueue(100)), recorder(new RX_ActivityRecorder)
    {
        queue->connectActivityRecorder(recorder.get());
    }
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    ~Subject()
    {
        queue->close();
        while (queue->threadCount() != 0) {
            std::this_thread::yield();
        }
    }

    void put()
    {
        qv::Reference<RX_Closure> closure(new Counted(alive, runs));
        queue->put(closure.get());
        closure.release();
    }

    std::atomic<int> alive{0};
    std::atomic<int> runs{0};
    qv::Reference<RX_ServerQueue> queue;
    qv::Reference<RX_ActivityRecorder> recorder;
};

TEST(ServerQueueFault, IsConstructedOrRunsOutOfMemoryWithoutADiagnostic)
{
    unsigned int allocations = 0;
    EXPECT_EQ("", errorOutputOf([&] {
                  allocations = walkAllocations(
                      [] { return qv::Reference<RX_ServerQueue>(); },
                      [](qv::Reference<RX_ServerQueue>& queue) { queue.reset(new RX_ServerQueue(4)); },
                      [](qv::Reference<RX_ServerQueue>& queue, bool done) { EXPECT_EQ(done, !!queue); });
              }));
    EXPECT_GE(allocations, 2u);
}

template <class Make>
void expectFailureWithoutDiagnostic(unsigned int conditions, Make make)
{
    for (const Call call : {Call::COND_INIT, Call::CONDATTR_INIT}) {
        for (unsigned int n = 1; n <= conditions; ++n) {
            Outcome outcome;
            EXPECT_EQ("", errorOutputOf([&] {
                          Fault fault(call, EAGAIN, n);
                          outcome = outcomeUnder(fault, make);
                      }));
            ASSERT_EQ(Outcome::FAILED, outcome.kind);
            EXPECT_THROW(std::rethrow_exception(outcome.failure), RX_Exception);
        }
    }
}

TEST(ServerQueueFault, FailedConstructionWritesNoDiagnostic)
{
    expectFailureWithoutDiagnostic(1,
                                   [] { const qv::Reference<RX_ServerQueue> queue(new RX_ServerQueue(4)); });
    expectFailureWithoutDiagnostic(
        1, [] { const qv::Reference<RX_ActivityRecorder> made(new RX_ActivityRecorder); });
    expectFailureWithoutDiagnostic(
        1, [] { const qv::Reference<RX_Closure0S> closure(new RX_Closure0S([] {})); });
}

TEST(ServerQueueFault, StartsItsThreadsOrRunsOutOfMemory)
{
    constexpr unsigned int THREADS = 3;
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](std::unique_ptr<Subject>& subject) {
                                  subject->queue->addThreads(THREADS - subject->queue->threadCount());
                              },
                              [](std::unique_ptr<Subject>& subject, bool done) {
                                  const unsigned int count = subject->queue->threadCount();
                                  EXPECT_TRUE(done ? count == THREADS : count < THREADS);
                              }),
              THREADS);
}

TEST(ServerQueueFault, PutQueuesTheClosureOrLeavesItToTheCaller)
{
    // So many that the queue allocates memory for at least one.
    constexpr unsigned int CLOSURES = 200;
    typedef void (*Put)(RX_ServerQueue&, RX_Closure* const&);
    const Put puts[] = {[](RX_ServerQueue& queue, RX_Closure* const& closure) { queue.put(closure); },
                        [](RX_ServerQueue& queue, RX_Closure* const& closure) { queue.putProbe(closure); }};
    for (const Put put : puts) {
        Subject subject;
        const qv::Reference<RX_ServerQueue> large(new RX_ServerQueue(CLOSURES + 1));
        large->connectActivityRecorder(subject.recorder.get());
        unsigned int taken = 0;
        unsigned int missed = 0;
        while (taken < CLOSURES) {
            qv::Reference<RX_Closure> closure(new Counted(subject.alive, subject.runs));
            Fault noMemory(Call::NEW, ENOMEM);
            const Outcome outcome = outcomeUnder(noMemory, [&] { put(*large, closure.get()); });
            if (outcome.kind == Outcome::NO_MEMORY) {
                ++missed;
                put(*large, closure.get());
            }
            closure.release();
            ++taken;
            ASSERT_EQ(taken, large->size());
            ASSERT_EQ(taken, subject.recorder->getBacklog());
        }
        EXPECT_GE(missed, 1u);
        EXPECT_EQ(static_cast<int>(CLOSURES), subject.alive);
        large->flush();
        EXPECT_EQ(0, subject.alive);
        EXPECT_EQ(0u, subject.recorder->getBacklog());
    }
}

TEST(ServerQueueFault, BlockedPutThatRunsOutOfMemoryLeavesTheSlotToTheNext)
{
    // So many rounds that the queue allocates memory in some.
    unsigned int missed = 0;
    for (int round = 0; round < 200; ++round) {
        Subject subject;
        const qv::Reference<RX_ServerQueue> small(new RX_ServerQueue(1));
        for (int i = 0; i <= round; ++i) {
            // Advances the queue by one element.
            const qv::Reference<RX_Closure> closure(new Counted(subject.alive, subject.runs));
            closure->attach();
            small->put(closure.get());
            if (i < round) {
                EXPECT_EQ(1, small->runPending());
            }
        }
        std::atomic<bool> isMissed{false};
        std::atomic<bool> isPut{false};
        const auto put = [&](RX_Closure* raw) {
            qv::Reference<RX_Closure> closure(raw);
            small->put(closure.get());
            static_cast<void>(closure.release());
        };
        qvtest::Caller first([&] {
            auto* const closure = new Counted(subject.alive, subject.runs);
            Fault noMemory(Call::NEW, ENOMEM);
            isMissed = outcomeUnder(noMemory, [&] { put(closure); }).kind == Outcome::NO_MEMORY;
        });
        ASSERT_TRUE(first.awaitAsleep());
        qvtest::Caller second([&] {
            put(new Counted(subject.alive, subject.runs));
            isPut = true;
        });
        ASSERT_TRUE(second.awaitAsleep());
        EXPECT_EQ(1, small->runPending());
        first.join();
        if (isMissed) {
            ++missed;
        } else {
            EXPECT_EQ(1, small->runPending());
        }
        second.join();
        EXPECT_TRUE(isPut);
        small->close();
        EXPECT_EQ(0, subject.alive);
    }
    EXPECT_GE(missed, 1U);
}

TEST(ServerQueueFault, ClosuresRunIfMemoryRunsOut)
{
    Subject subject;
    subject.put();
    Fault noMemory(Call::NEW, ENOMEM);
    const Outcome outcome = outcomeUnder(noMemory, [&] { EXPECT_EQ(1, subject.queue->runPending()); });
    EXPECT_EQ(Outcome::DONE, outcome.kind);
    EXPECT_EQ(1, subject.runs);
    EXPECT_EQ(0, subject.alive);
}

TEST(ServerQueueFault, FlushAndCloseAllocateNothing)
{
    for (unsigned int n = 1; n <= 5; ++n) {
        for (const bool closing : {false, true}) {
            Subject subject;
            for (int i = 0; i < 50; ++i) {
                subject.put();
            }
            Fault noMemory(Call::NEW, ENOMEM, n);
            const Outcome outcome =
                outcomeUnder(noMemory, [&] { closing ? subject.queue->close() : subject.queue->flush(); });
            EXPECT_EQ(Outcome::DONE, outcome.kind);
            EXPECT_EQ(closing ? 1 : 0, subject.queue->isClosed());
            EXPECT_EQ(0u, subject.queue->size());
            EXPECT_EQ(0, subject.alive);
            EXPECT_EQ(0, subject.runs);
            EXPECT_EQ(0u, subject.recorder->getBacklog());
        }
    }
}

}
