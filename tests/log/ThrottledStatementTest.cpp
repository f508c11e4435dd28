#define NIM_LOG_FILE "tests/log/Throttled"

#include <dalnim/log/ThrottledStatement.hpp>

#include "CoarseClock.hpp"
#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <iomanip>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <support/StandardLibrary.hpp>

using namespace com::kor::dal::nim;

namespace {

using std::chrono::milliseconds;

int evaluated = 0;

int count(int value)
{
    ++evaluated;
    return value;
}

/** A logger and a module of it. */
class ThrottledStatementTest : public testing::Test
{
protected:
    ThrottledStatementTest() : module("tests", logger.write)
    {
        evaluated = 0;
        logger.write.setOutputMask(0);
    }

    String taken()
    {
        return logger.taken();
    }

    logtest::OwnLogger logger;
    log::Module module;
};

TEST_F(ThrottledStatementTest, EveryNWritesTheFirstAndEachNthRecordWithTheNumberHeldBack)
{
    for (int i = 0; i < 9; ++i) {
        NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 4) << "number " << i;
    }
    EXPECT_EQ(" : number 0\n"
              " : number 4 (3 held back)\n"
              " : number 8 (3 held back)\n",
              taken());
}

TEST_F(ThrottledStatementTest, EveryNUpToOneWritesAllRecords)
{
    for (const int n : {1, 0, -1}) {
        for (int i = 0; i < 2; ++i) {
            NIM_LOG_EVERY_N_TO(module, Severity_ERROR, n) << n;
        }
    }
    EXPECT_EQ(" : 1\n : 1\n : 0\n : 0\n : -1\n : -1\n", taken());
}

TEST_F(ThrottledStatementTest, EveryNFollowsALimitThatChanges)
{
    int i = 0;
    for (const int n : {9, 9, 9, 3, 2, 2}) {
        ++i;
        NIM_LOG_EVERY_N_TO(module, Severity_ERROR, n) << i;
    }
    EXPECT_EQ(" : 1\n : 4 (2 held back)\n : 6 (1 held back)\n", taken());
}

TEST_F(ThrottledStatementTest, FirstNWritesTheFirstNRecordsAndTheLastOneSaysSo)
{
    for (int i = 1; i < 6; ++i) {
        NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 3) << "number " << i;
    }
    EXPECT_EQ(" : number 1\n : number 2\n : number 3 (3 of 3, further ones are held back)\n", taken());
    for (const int n : {0, -1}) {
        NIM_LOG_FIRST_N_TO(module, Severity_ERROR, n) << "never";
    }
    EXPECT_EQ("", taken());
}

TEST_F(ThrottledStatementTest, EveryMsWritesTheFirstRecordAfterEachPeriod)
{
    logtest::StoppedClock clock;
    for (const int pause : {0, 0, 999, 1, 0, 5000, 1000}) {
        clock.advance(milliseconds(pause));
        NIM_LOG_EVERY_MS_TO(module, Severity_ERROR, 1000) << "after " << pause;
    }
    EXPECT_EQ(" : after 0\n"
              " : after 1 (2 held back)\n"
              " : after 5000 (1 held back)\n"
              " : after 1000\n",
              taken());
}

TEST_F(ThrottledStatementTest, EveryMsAcceptsAnyPeriod)
{
    const logtest::StoppedClock clock;
    for (const std::int64_t period : {INT64_C(0), INT64_C(-1), INT64_MIN}) {
        for (int i = 0; i < 2; ++i) {
            NIM_LOG_EVERY_MS_TO(module, Severity_ERROR, period) << i;
        }
    }
    EXPECT_EQ(" : 0\n : 1\n : 0\n : 1\n : 0\n : 1\n", taken());
    for (int i = 0; i < 2; ++i) {
        NIM_LOG_EVERY_MS_TO(module, Severity_ERROR, INT64_MAX) << i;
    }
    EXPECT_EQ(" : 0\n", taken());
}

TEST_F(ThrottledStatementTest, RefusedStatementEvaluatesNoOperand)
{
    const logtest::StoppedClock clock;
    for (int i = 0; i < 3; ++i) {
        NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 3) << count(1);
        NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 1) << count(2);
        NIM_LOG_EVERY_MS_TO(module, Severity_ERROR, 10) << count(3);
        NIM_LOG_EVERY_N_TO(module, Severity_DEBUG, 3) << count(4);
    }
    EXPECT_EQ(3, evaluated);
    EXPECT_EQ(" : 1\n : 2 (1 of 1, further ones are held back)\n : 3\n", taken());
}

TEST_F(ThrottledStatementTest, DisabledExecutionsAreNotCounted)
{
    for (int i = 0; i < 6; ++i) {
        // Disabled at 1, 2 and 3.
        logger.write.setSeverity(i >= 1 && i <= 3 ? log::Severity_FATAL : log::Severity_NOTICE);
        NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 2) << i;
        NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 3) << i;
    }
    EXPECT_EQ(" : 0\n : 0\n : 4\n : 5 (1 held back)\n : 5 (3 of 3, further ones are held back)\n", taken());
}

TEST_F(ThrottledStatementTest, IsOneStatementInAnUnbracedIf)
{
    for (const bool high : {true, false}) {
        if (high)
            NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 2) << "high";
        else
            NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 2) << "low";
    }
    bool turned = false;
    for (int i = 0; i < 2; ++i) {
        if (i < 2)
            NIM_LOG_EVERY_MS_TO(module, Severity_ERROR, INT64_MAX) << i;
        else
            turned = true;
    }
    EXPECT_FALSE(turned);
    EXPECT_EQ(" : high\n : low\n : 0\n", taken());
}

template <class Type>
void logOf(log::Module& module, const Type& value)
{
    NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 1) << value;
}

TEST_F(ThrottledStatementTest, EachPlaceAndEachInstantiationIsCountedSeparately)
{
    for (int i = 0; i < 2; ++i) {
        NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 1) << "first";
        NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 1) << "second";
        logOf(module, 3);
        logOf(module, "fourth");
    }
    const String end = " (1 of 1, further ones are held back)\n";
    EXPECT_EQ(" : first" + end + " : second" + end + " : 3" + end + " : fourth" + end, taken());
}

TEST_F(ThrottledStatementTest, NumberFollowsTheTextWithoutItsTrailingWhiteSpace)
{
    const String spaces(500, ' ');
    for (const char* const text : {"first", "a line\n", "\t\n ", ""}) {
        for (int i = 0; i < 3; ++i) {
            NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 2) << text << spaces;
        }
    }
    EXPECT_EQ(" : first\n : first (1 held back)\n : a line (1 held back)\n"
              " :  (1 held back)\n :  (1 held back)\n :  (1 held back)\n",
              taken());
}

TEST_F(ThrottledStatementTest, NumberIsPlainWhateverTheStreamIsSetTo)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "libc++ does not accept a null string";
    }
    const char* const nothing = nullptr;
    for (int i = 0; i < 21; ++i) {
        NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 20) << std::hex << i << std::setw(30) << std::setfill('*');
        NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 20) << "failed" << nothing << "unseen";
    }
    EXPECT_EQ(" : 0\n : failed\n : 14 (19 held back)\n : failed (19 held back)\n", taken());
}

TEST_F(ThrottledStatementTest, ThrowingOperandAddsTheNumberToTheNextRecord)
{
    int executions = 0;
    const auto execute = [&](bool isThrowing) {
        ++executions;
        NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 3)
            << executions << (isThrowing ? throw std::runtime_error("no text") : "");
    };
    for (int i = 0; i < 3; ++i) {
        execute(false);
    }
    EXPECT_EQ(" : 1\n", taken());
    EXPECT_THROW(execute(true), std::runtime_error);
    EXPECT_EQ("", taken());
    execute(false);
    EXPECT_EQ(" : 5 (2 held back)\n", taken());
}

TEST_F(ThrottledStatementTest, UsesTheVisibleModule)
{
    log::Module& com_kor_dal_nim_log_module = module;
    logger.write.setOutputMask(log::Mask_MODULENAME);
    NIM_LOG_EVERY_N(Severity_ERROR, 2) << "n";
    NIM_LOG_FIRST_N(Severity_ERROR, 2) << "first";
    NIM_LOG_EVERY_MS(Severity_ERROR, 2) << "ms";
    EXPECT_EQ("tests : n\ntests : first\ntests : ms\n", taken());
}

TEST_F(ThrottledStatementTest, StatementWithinAnOperandHasItsOwnNumber)
{
    for (int i = 0; i < 3; ++i) {
        NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 2) << "outer " << [this] {
            NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 2) << "inner";
            return 1;
        }();
    }
    EXPECT_EQ(" : inner\n : outer 1\n : inner (2 of 2, further ones are held back)\n"
              " : outer 1 (1 held back)\n",
              taken());
}

/** A logger that reads the text of its records from the string stream. */
class Reader : public logtest::PlainLog
{
public:
    using PlainLog::log;
    void log(const log::Module&, const log::Header& record, bool) override
    {
        text += static_cast<const std::ostringstream&>(record).str() + '\n';
    }

    String text;
};

TEST_F(ThrottledStatementTest, NumberReachesOtherLoggers)
{
    Reader reader;
    log::Module own("own", reader);
    for (int i = 0; i < 3; ++i) {
        NIM_LOG_EVERY_N_TO(own, Severity_ERROR, 2) << i;
    }
    EXPECT_EQ("0\n2 (1 held back)\n", reader.text);
}

/** Sums up the records that were written and the numbers that they report. */
std::pair<std::uint64_t, std::uint64_t> writtenAndHeldBack(const String& text)
{
    static const std::regex number("\\((\\d+) held back\\)");
    std::uint64_t written = 0;
    for (const char c : text) {
        written += c == '\n' ? 1 : 0;
    }
    std::uint64_t heldBack = 0;
    for (auto at = std::sregex_iterator(text.begin(), text.end(), number); at != std::sregex_iterator();
         ++at) {
        heldBack += std::stoull((*at)[1]);
    }
    return {written, heldBack};
}

template <class Body>
void onThreads(int number, Body body)
{
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < number; ++i) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < number) {
                std::this_thread::yield();
            }
            body();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(ThrottledStatementTest, EveryNOfSeveralThreadsCountsEachExecutionOnce)
{
    constexpr int THREADS = 4;
    constexpr int EXECUTIONS = 5000;
    onThreads(THREADS, [this] {
        for (int i = 0; i < EXECUTIONS; ++i) {
            NIM_LOG_EVERY_N_TO(module, Severity_ERROR, 100) << "text";
        }
    });
    // The last 99 executions are not reported yet.
    EXPECT_EQ(std::make_pair(std::uint64_t(200), std::uint64_t(19701)), writtenAndHeldBack(taken()));
}

TEST_F(ThrottledStatementTest, FirstNOfSeveralThreadsWritesNRecords)
{
    onThreads(4, [this] {
        for (int i = 0; i < 1000; ++i) {
            NIM_LOG_FIRST_N_TO(module, Severity_ERROR, 1500) << "text";
        }
    });
    const String text = taken();
    EXPECT_EQ(1500u, writtenAndHeldBack(text).first);
    EXPECT_NE(String::npos, text.find(" : text (1500 of 1500, further ones are held back)\n"));
}

TEST_F(ThrottledStatementTest, EveryMsOfSeveralThreadsCountsEachExecutionOnce)
{
    constexpr std::uint64_t EXECUTIONS = 4 * 2000;
    logtest::StoppedClock clock;
    const auto execute = [this] { NIM_LOG_EVERY_MS_TO(module, Severity_ERROR, 1000) << "text"; };
    onThreads(4, [&] {
        for (int i = 0; i < 2000; ++i) {
            execute();
        }
    });
    EXPECT_EQ(std::make_pair(std::uint64_t(1), std::uint64_t(0)), writtenAndHeldBack(taken()));
    clock.advance(milliseconds(1000));
    execute();
    EXPECT_EQ(std::make_pair(std::uint64_t(1), EXECUTIONS - 1), writtenAndHeldBack(taken()));
}

}
