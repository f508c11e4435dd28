#include <qv/rtlapi/RX_Thread.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <thread>

#include <pthread.h>
#include <unistd.h>

#include <qv/rtlapi/RX_Closure0S.hpp>
#include <qv/rtlapi/RX_Closure_.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Exception.hpp>

#include "Threads.hpp"

namespace {

using qvtest::Gate;

/** A closure that tells when it goes. */
class Call : public RX_Closure
{
public:
    Call(Gate& gone, void (*function)()) : _gone(gone), _function(function) {}
    ~Call() noexcept(false) override
    {
        _gone.open();
    }
    void apply() override
    {
        _function();
    }

private:
    Gate& _gone;
    void (*_function)();
};

std::atomic<pid_t> callerTid{0};

void tellTid()
{
    callerTid = gettid();
}

TEST(RXThread, RunsItsClosureOnAThreadOfItsOwnAndReleasesIt)
{
    Gate gone;
    callerTid = 0;
    RX_Thread* const thread = new RX_Thread(new Call(gone, tellTid));
    thread->start();
    thread->detach();
    gone.pass();
    EXPECT_NE(callerTid, 0);
    EXPECT_NE(callerTid, gettid());
}

TEST(RXThread, LeavesTheClosureToWhoeverHasAReference)
{
    RX_Closure0S* const closure = new RX_Closure0S(tellTid);
    closure->attach();
    RX_Thread* const thread = new RX_Thread(closure);
    thread->start();
    thread->detach();
    closure->waitForCompletion();
    closure->detach();
}

void fail()
{
    throw RX_ExWarning(16, "busy");
}

TEST(RXThread, CarriesAnExceptionToTheOneWhoWaits)
{
    RX_Closure0S* const closure = new RX_Closure0S(fail);
    closure->attach();
    RX_Thread* const thread = new RX_Thread(closure);
    thread->start();
    thread->detach();
    EXPECT_THROW(closure->waitForCompletion(), RX_ExWarning);
    closure->detach();
}

TEST(RXThread, ReleasesTheClosureWhenItWasNeverStarted)
{
    Gate gone;
    callerTid = 0;
    RX_Thread* const thread = new RX_Thread(new Call(gone, tellTid));
    thread->detach();
    gone.pass();
    EXPECT_EQ(callerTid, 0);
}

TEST(RXThread, IsStartedOnce)
{
    RX_Closure0S* const closure = new RX_Closure0S(tellTid);
    closure->attach();
    RX_Thread* const thread = new RX_Thread(closure);
    thread->start();
    try {
        thread->start();
        ADD_FAILURE();
    } catch (const RX_Exception& exception) {
        EXPECT_EQ(exception.getCode(), 22);
    }
    thread->detach();
    closure->waitForCompletion();
    closure->detach();
}

TEST(RXThread, NeedsAClosure)
{
    RX_Thread* const thread = new RX_Thread(nullptr);
    EXPECT_THROW(thread->start(), RX_Exception);
    thread->detach();
}

void endThread()
{
    pthread_exit(nullptr);
}

TEST(RXThread, ReleasesTheClosureWhenItEndsTheThread)
{
    Gate gone;
    RX_Thread* const thread = new RX_Thread(new Call(gone, endThread));
    thread->start();
    thread->detach();
    gone.pass();
}

[[noreturn]] void runAndDie(void (*function)())
{
    RX_Thread* const thread = new RX_Thread(new RX_Closure_<void (*)()>(function));
    thread->start();
    for (;;) {
        pause();
    }
}

class RXThreadDeathTest : public testing::Test
{
protected:
    void SetUp() override
    {
        testing::FLAGS_gtest_death_test_style = "threadsafe";
    }
};

TEST_F(RXThreadDeathTest, AnExceptionEndsTheProcessAndIsNamed)
{
    EXPECT_EXIT(runAndDie([] { throw std::runtime_error("what\nit says"); }),
                testing::KilledBySignal(SIGABRT),
                "qv: exception left RX_Closure_<void \\(\\*\\)\\(\\)> on a detached thread: "
                "std::runtime_error: what it says\n");
}

TEST_F(RXThreadDeathTest, AnExceptionOfTheTreeIsNamedToo)
{
    EXPECT_EXIT(runAndDie(fail), testing::KilledBySignal(SIGABRT),
                "on a detached thread: RX_ExWarning: Device or resource busy: busy\n");
}

TEST_F(RXThreadDeathTest, SoIsAnythingElse)
{
    EXPECT_EXIT(runAndDie([] { throw 5; }), testing::KilledBySignal(SIGABRT), "on a detached thread: int\n");
}

[[noreturn]] void tellAndExit()
{
    static const char text[] = "the handler of the program\n";
    const ssize_t written = write(STDERR_FILENO, text, sizeof text - 1);
    _exit(written > 0 && std::current_exception() ? 3 : 4);
}

TEST_F(RXThreadDeathTest, TheHandlerOfTheProgramIsCalledWithTheExceptionInFlight)
{
    EXPECT_EXIT(
        {
            std::set_terminate(tellAndExit);
            runAndDie(fail);
        },
        testing::ExitedWithCode(3), "the handler of the program");
}

}
