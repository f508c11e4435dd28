// Log statements in signal handlers that interrupt a log statement.

#include <dalnim/log/Statement.hpp>

#include "Loggers.hpp"

#include "support/Sanitizers.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <streambuf>

#include <signal.h>

namespace {

using namespace logtest;

log::Module* handler_module = nullptr;
volatile int handler_calls = 0;
volatile int handler_operands = 0;

void logInHandler(int)
{
    handler_calls = handler_calls + 1;
    NIM_LOG_TO(*handler_module, Severity_WARNING) << "handler " << (handler_operands = handler_operands + 1);
}

const char* interrupted()
{
    raise(SIGUSR1);
    return "interrupted";
}

/** Interrupts each record while it is written. */
class InterruptedStream : public std::streambuf
{
protected:
    std::streamsize xsputn(const char*, std::streamsize size) override
    {
        raise(SIGUSR1);
        return size;
    }
};

class StatementSignal : public testing::TestWithParam<int>
{
protected:
    StatementSignal() : module("tests.signal", logger.write), stack(new char[STACK_SIZE])
    {
        handler_module = &module;
        handler_calls = 0;
        handler_operands = 0;
        const stack_t alternate = {stack.get(), 0, STACK_SIZE};
        sigaltstack(&alternate, &oldStack);
        struct sigaction action = {};
        action.sa_handler = logInHandler;
        action.sa_flags = GetParam();
        sigaction(SIGUSR1, &action, &oldAction);
    }
    ~StatementSignal() override
    {
        sigaction(SIGUSR1, &oldAction, nullptr);
        sigaltstack(&oldStack, nullptr);
        handler_module = nullptr;
    }

    std::uint64_t refused() const
    {
        return logger.write.getRefusedStatements();
    }

    static constexpr std::size_t STACK_SIZE = 1 << 18;

    OwnLogger logger;
    log::Module module;
    const std::unique_ptr<char[]> stack;
    stack_t oldStack = {};
    struct sigaction oldAction = {};
};

INSTANTIATE_TEST_SUITE_P(Stack, StatementSignal, testing::Values(0, SA_ONSTACK),
                         [](const testing::TestParamInfo<int>& parameter) {
                             return parameter.param == 0 ? "OfTheThread" : "OfTheHandler";
                         });

TEST_P(StatementSignal, IsRefusedAndCountedIfItInterruptsTheOperandsOfAStatement)
{
    NIM_LOG_TO(module, Severity_WARNING) << interrupted();
    EXPECT_EQ(1, handler_calls);
    EXPECT_EQ(0, handler_operands);
    EXPECT_EQ(1U, refused());
    EXPECT_EQ(0U, logger.taken().find("tests.signal WARNING"));
    NIM_LOG_TO(module, Severity_WARNING) << interrupted() << interrupted();
    EXPECT_EQ(3U, refused());
}

TEST_P(StatementSignal, IsRefusedIfItInterruptsTheWrite)
{
    InterruptedStream buffer;
    std::ostream stream(&buffer);
    logger.write.setStream(asIos(stream));
    NIM_LOG_TO(module, Severity_WARNING) << "text";
    EXPECT_EQ(1, handler_calls);
    EXPECT_EQ(1U, refused());
    // Handed over without a statement.
    log::Header header(log::Severity_WARNING, "x", 1);
    module += header;
    EXPECT_EQ(2, handler_calls);
    EXPECT_EQ(2U, refused());
}

TEST_P(StatementSignal, IsRefusedIfItInterruptsANestedStatement)
{
    const auto nested = [&] {
        NIM_LOG_TO(module, Severity_WARNING) << interrupted();
        return "outer";
    };
    NIM_LOG_TO(module, Severity_WARNING) << nested();
    EXPECT_EQ(1U, refused());
    EXPECT_EQ(0, handler_operands);
}

TEST_P(StatementSignal, IsWrittenIfItInterruptsNoStatement)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the thread sanitizer reports, rightly, that the handler uses the allocator";
    }
    interrupted();
    EXPECT_EQ(1, handler_calls);
    EXPECT_EQ(1, handler_operands);
    NIM_LOG_TO(module, Severity_WARNING) << "text";
    interrupted();
    EXPECT_EQ(2, handler_operands);
    EXPECT_EQ(0U, refused());
}

TEST_P(StatementSignal, StatementsWithinTheOperandsOfAHandlersStatementAreWritten)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the thread sanitizer reports, rightly, that the handler uses the allocator";
    }
    struct Handler
    {
        static const char* nested()
        {
            NIM_LOG_TO(*handler_module, Severity_WARNING) << "nested";
            return "outer";
        }
        static void log(int)
        {
            NIM_LOG_TO(*handler_module, Severity_WARNING) << nested();
        }
    };
    struct sigaction action = {};
    action.sa_handler = Handler::log;
    action.sa_flags = GetParam();
    sigaction(SIGUSR1, &action, nullptr);
    interrupted();
    const String text = logger.taken();
    EXPECT_NE(String::npos, text.find(" : nested\n"));
    EXPECT_NE(String::npos, text.find(" : outer\n"));
    EXPECT_EQ(0U, refused());
}

TEST(RefusedStatements, DoNotCountNestedStatements)
{
    static_assert(noexcept(std::declval<const log::Control&>().getRefusedStatements()));
    OwnLogger logger;
    const log::Control& control = logger.write;
    EXPECT_EQ(0U, control.getRefusedStatements());
    log::Module module("tests.signal", logger.write);
    const auto nested = [&] {
        NIM_LOG_TO(module, Severity_WARNING) << "nested";
        return "outer";
    };
    NIM_LOG_TO(module, Severity_WARNING) << nested();
    EXPECT_EQ(0U, control.getRefusedStatements());
}

}
