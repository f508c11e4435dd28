#ifndef TESTS_QV_SERVERQUEUEFIXTURE_HPP
#define TESTS_QV_SERVERQUEUEFIXTURE_HPP

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_ServerQueue.hpp>

#include "Threads.hpp"

namespace qvtest {

/** A queue with a recorder, and closures whose objects are counted. */
class ServerQueueFixture : public testing::Test
{
protected:
    void SetUp() override
    {
        recorder = new RX_ActivityRecorder;
    }
    void TearDown() override
    {
        if (queue != nullptr) {
            endQueue();
        }
        recorder->detach();
        EXPECT_EQ(alive, 0);
    }

    void make(unsigned int capacity, unsigned int threads)
    {
        queue = new RX_ServerQueue(capacity);
        queue->connectActivityRecorder(recorder);
        queue->addThreads(threads);
    }

    /** Closes the queue and waits until its last worker has ended. */
    void endQueue()
    {
        queue->close();
        recorder->waitForQuiet();
        awaitThreads(0);
        queue->detach();
        queue = nullptr;
    }

    void awaitThreads(unsigned int count)
    {
        while (queue->threadCount() != count) {
            std::this_thread::yield();
        }
    }

    /** Returns a new closure, which is counted in `alive` until it is destroyed. */
    RX_Closure* closure(std::function<void()> function = [] {})
    {
        return new Counted(alive, std::move(function));
    }

    /** Puts a closure that runs until the gate is opened, and returns when it runs. */
    void occupy(Gate& gate)
    {
        Gate isRunning;
        queue->put(closure([&] {
            isRunning.open();
            gate.pass();
        }));
        isRunning.pass();
    }

    std::atomic<int> alive{0};
    RX_ServerQueue* queue = nullptr;
    RX_ActivityRecorder* recorder = nullptr;

private:
    class Counted : public RX_Closure
    {
    public:
        Counted(std::atomic<int>& alive, std::function<void()> function)
            : _alive(alive), _function(std::move(function))
        {
            ++_alive;
        }
        ~Counted() noexcept(false) override
        {
            --_alive;
        }
        void apply() override
        {
            _function();
        }

    private:
        std::atomic<int>& _alive;
        std::function<void()> _function;
    };
};

}

#endif
