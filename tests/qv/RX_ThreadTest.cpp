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

/** A closure that opens a gate when it is destroyed. */
class Call : public RX_Closure
{
public:
    Call(Gate& destroyed, void (*function)()) : _destroyed(destroyed), _function(function) {}
    ~Call() noexcept(false) override
    {
        _destroyed.open();
    }
    void apply() override
    {
        _function();
    }

private:
    Gate& _destroyed;
    void (*_function)();
};

std::atomic<pid_t> callerTid{0};

void storeTid()
{
    callerTid = gettid();
}

TEST(RXThread, RunsItsClosureOnAThreadOfItsOwnAndReleasesIt)
{
    Gate destroyed;
    callerTid = 0;
    RX_Thread* const thread = new RX_Thread(new Call(destroyed, storeTid));
    thread->start();
    thread->detach();
    destroyed.pass();
    EXPECT_NE(callerTid, 0);
    EXPECT_NE(callerTid, gettid());
}

TEST(RXThread, ClosureWithAnotherReferenceSurvives)
{
    RX_Closure0S* const closure = new RX_Closure0S(storeTid);
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

TEST(RXThread, WaitThrowsTheExceptionOfASynchronousClosure)
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
    Gate destroyed;
    callerTid = 0;
    RX_Thread* const thread = new RX_Thread(new Call(destroyed, storeTid));
    thread->detach();
    destroyed.pass();
    EXPECT_EQ(callerTid, 0);
}

TEST(RXThread, SecondStartThrows)
{
    RX_Closure0S* const closure = new RX_Closure0S(storeTid);
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

TEST(RXThread, StartWithoutAClosureThrows)
{
    RX_Thread* const thread = new RX_Thread(nullptr);
    EXPECT_THROW(thread->start(), RX_Exception);
    thread->detach();
}

void endThread()
{
    pthread_exit(nullptr);
}

TEST(RXThread, ReleasesAClosureThatEndsTheThread)
{
    Gate destroyed;
    RX_Thread* const thread = new RX_Thread(new Call(destroyed, endThread));
    thread->start();
    thread->detach();
    destroyed.pass();
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

TEST_F(RXThreadDeathTest, UncaughtExceptionIsReportedAndTerminates)
{
    EXPECT_EXIT(runAndDie([] { throw std::runtime_error("what\nit says"); }),
                testing::KilledBySignal(SIGABRT),
                "qv: exception left RX_Closure_<void \\(\\*\\)\\(\\)> on a detached thread: "
                "std::runtime_error: what it says\n");
}

TEST_F(RXThreadDeathTest, UncaughtRXExceptionIsReportedWithItsMessage)
{
    EXPECT_EXIT(runAndDie(fail), testing::KilledBySignal(SIGABRT),
                "on a detached thread: RX_ExWarning: Device or resource busy: busy\n");
}

TEST_F(RXThreadDeathTest, UncaughtExceptionOfAnyTypeIsReported)
{
    EXPECT_EXIT(runAndDie([] { throw 5; }), testing::KilledBySignal(SIGABRT), "on a detached thread: int\n");
}

[[noreturn]] void writeAndExit()
{
    static const char text[] = "the handler of the program\n";
    const ssize_t written = write(STDERR_FILENO, text, sizeof text - 1);
    _exit(written > 0 && std::current_exception() ? 3 : 4);
}

TEST_F(RXThreadDeathTest, TerminateHandlerSeesTheCurrentException)
{
    EXPECT_EXIT(
        {
            std::set_terminate(writeAndExit);
            runAndDie(fail);
        },
        testing::ExitedWithCode(3), "the handler of the program");
}

}
