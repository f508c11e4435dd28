// Some sources name themselves.
#define NIM_LOG_FILE "tests/log/Statement"

#include <dalnim/log/Statement.hpp>

#include <dalnim/sys/SysError.hpp>

#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

// A program that makes the whole library visible can still log.
using namespace com::kor::dal::nim;

namespace {

int evaluated = 0;

int count(int value)
{
    ++evaluated;
    return value;
}

/** A logger and a module of it, and the lines that were logged since the last question. */
class StatementTest : public testing::Test
{
protected:
    StatementTest() : module("tests", logger.write)
    {
        evaluated = 0;
    }

    String taken()
    {
        return logger.taken();
    }

    logtest::OwnLogger logger;
    log::Module module;
};

log::Module& countedModule(log::Module& module)
{
    ++evaluated;
    return module;
}

TEST_F(StatementTest, WritesARecord)
{
    NIM_LOG_TO(module, Severity_WARNING) << "disk " << 3 << " is full";
    EXPECT_EQ("tests WARNING Statement : disk 3 is full\n", taken());
}

TEST_F(StatementTest, RecordContainsTheLineOfTheStatement)
{
    logger.write.setOutputMask(log::Mask_LINENUMBER);
    const unsigned int line = __LINE__ + 1;
    NIM_LOG_TO(module, Severity_WARNING) << "here";
    EXPECT_EQ(std::to_string(line) + " : here\n", taken());
}

TEST_F(StatementTest, SeveritiesNeedNoNamespace)
{
    logger.write.setSeverity(log::Severity_NONE);
    NIM_LOG_TO(module, Severity_NONE) << 0;
    NIM_LOG_TO(module, Severity_TRACE) << 1;
    NIM_LOG_TO(module, Severity_DEBUG) << 2;
    NIM_LOG_TO(module, Severity_INFO) << 3;
    NIM_LOG_TO(module, Severity_NOTICE) << 4;
    NIM_LOG_TO(module, Severity_WARNING) << 5;
    NIM_LOG_TO(module, Severity_ERROR) << 6;
    NIM_LOG_TO(module, Severity_FATAL) << 7;
    EXPECT_EQ("tests NONE Statement : 0\n"
              "tests TRACE Statement : 1\n"
              "tests DEBUG Statement : 2\n"
              "tests INFO Statement : 3\n"
              "tests NOTICE Statement : 4\n"
              "tests WARNING Statement : 5\n"
              "tests ERROR Statement : 6\n"
              "tests FATAL Statement : 7\n",
              taken());
}

TEST_F(StatementTest, SeverityCanBeAnyExpression)
{
    const log::Severity held = log::Severity_ERROR;
    NIM_LOG_TO(module, held) << "held";
    NIM_LOG_TO(module, log::Severity_FATAL) << "qualified";
    NIM_LOG_TO(module, evaluated == 0 ? Severity_WARNING : Severity_ERROR) << "chosen";
    NIM_LOG_TO(module, log::getSeverityId("NOTICE")) << "by name";
    EXPECT_EQ("tests ERROR Statement : held\n"
              "tests FATAL Statement : qualified\n"
              "tests WARNING Statement : chosen\n"
              "tests NOTICE Statement : by name\n",
              taken());
}

TEST_F(StatementTest, SeverityCanBeAnyKindOfVariable)
{
    // Names that the macros might use themselves.
    log::Severity severity = log::Severity_ERROR;
    NIM_LOG_TO(module, severity) << "local";
    struct Holder
    {
        void write(log::Module& log_module) const
        {
            NIM_LOG_TO(log_module, log_severity) << "member";
            NIM_LOG_TO(log_module, this->log_severity) << "this";
        }
        log::Severity log_severity;
    };
    Holder{log::Severity_ERROR}.write(module);
    const auto [bound, text] = std::pair<log::Severity, const char*>(log::Severity_ERROR, "binding");
    NIM_LOG_TO(module, bound) << text;
    const auto lambda = [this, severity] { NIM_LOG_TO(module, severity) << "captured"; };
    lambda();
    EXPECT_EQ("tests ERROR Statement : local\n"
              "tests ERROR Statement : member\n"
              "tests ERROR Statement : this\n"
              "tests ERROR Statement : binding\n"
              "tests ERROR Statement : captured\n",
              taken());
}

TEST_F(StatementTest, DisabledStatementEvaluatesNoOperand)
{
    NIM_LOG_TO(module, Severity_INFO) << count(1) << count(2);
    EXPECT_EQ(0, evaluated);
    logger.write.setModuleFilter("other", true);
    NIM_LOG_TO(module, Severity_WARNING) << count(1);
    EXPECT_EQ(0, evaluated);
    EXPECT_EQ("", taken());
    NIM_LOG_TO(module, Severity_ERROR) << count(1);
    EXPECT_EQ(1, evaluated);
    EXPECT_EQ("tests ERROR Statement : 1\n", taken());
}

TEST_F(StatementTest, EvaluatesEachArgumentOnce)
{
    int severities = 0;
    NIM_LOG_TO(countedModule(module), (++severities, Severity_ERROR)) << "text";
    EXPECT_EQ(1, evaluated);
    EXPECT_EQ(1, severities);
    NIM_LOG_TO(countedModule(module), (++severities, Severity_DEBUG)) << "text";
    EXPECT_EQ(2, evaluated);
    EXPECT_EQ(2, severities);
    EXPECT_EQ("tests ERROR Statement : text\n", taken());
}

TEST_F(StatementTest, IsOneStatementInAnUnbracedIf)
{
    for (const bool high : {true, false}) {
        if (high)
            NIM_LOG_TO(module, Severity_ERROR) << "high";
        else
            NIM_LOG_TO(module, Severity_NOTICE) << "low";
    }
    if (evaluated != 0)
        NIM_LOG_TO(module, Severity_DEBUG) << "never";
    else if (evaluated == 0)
        NIM_LOG_TO(module, Severity_ERROR) << "else";
    else
        ADD_FAILURE() << "the else belongs to the if that it stands under";
    for (int i = 0; i < 2; ++i)
        NIM_LOG_TO(module, Severity_ERROR) << i;
    EXPECT_EQ("tests ERROR Statement : high\n"
              "tests NOTICE Statement : low\n"
              "tests ERROR Statement : else\n"
              "tests ERROR Statement : 0\n"
              "tests ERROR Statement : 1\n",
              taken());
}

TEST_F(StatementTest, DisabledStatementDoesNotCaptureElse)
{
    bool turned = false;
    if (evaluated == 0)
        NIM_LOG_TO(module, Severity_DEBUG) << "closed";
    else
        turned = true;
    EXPECT_FALSE(turned);
    EXPECT_EQ("", taken());
}

TEST_F(StatementTest, StatementWithoutTextWritesThePrefix)
{
    NIM_LOG_TO(module, Severity_ERROR);
    EXPECT_EQ("tests ERROR Statement : \n", taken());
}

TEST_F(StatementTest, StatementWithinAnOperandWritesItsRecordFirst)
{
    NIM_LOG_TO(module, Severity_ERROR) << "outer " << [this] {
        NIM_LOG_TO(module, Severity_WARNING) << "inner";
        return 1;
    }();
    EXPECT_EQ("tests WARNING Statement : inner\ntests ERROR Statement : outer 1\n", taken());
}

template <class Container>
void logAll(log::Module& module, const Container& container)
{
    for (const auto& [key, value] : container)
        NIM_LOG_TO(module, Severity_ERROR) << key << '=' << value;
}

TEST_F(StatementTest, CanBeUsedInTemplates)
{
    logAll(module, std::vector<std::pair<int, const char*>>{{1, "one"}, {2, "two"}});
    EXPECT_EQ("tests ERROR Statement : 1=one\ntests ERROR Statement : 2=two\n", taken());
}

TEST_F(StatementTest, ExceptionOfAnOperandPropagatesWithoutARecord)
{
    const auto raise = []() -> int { throw std::runtime_error("no text"); };
    EXPECT_EQ("no text", logtest::textOf<std::runtime_error>(
                             [&] { NIM_LOG_TO(module, Severity_ERROR) << "before " << raise(); }));
    EXPECT_EQ("", taken());
}

TEST(Statement, UsesTheGlobalModule)
{
    logtest::DefaultLogger logger;
    NIM_LOG(Severity_NOTICE) << "text";
    NIM_LOG(Severity_INFO) << count(1);
    NIM_LOG_TRAPPED(Severity_ERROR, std::runtime_error("it broke"), "reading failed");
    EXPECT_EQ("global NOTICE Statement : text\n"
              "global ERROR Statement : reading failed : it broke\n",
              logger.taken());
}

}

namespace app {

log::Module& com_kor_dal_nim_log_module = log::Module::getInstance("app", log::GET_NIM_LOG_LOGGER_VAR());

/** A class with a module of its own. */
struct Component
{
    void run() const
    {
        NIM_LOG(Severity_NOTICE) << "text";
    }
    log::Module& com_kor_dal_nim_log_module;
};

TEST(Statement, UsesTheVisibleModuleVariable)
{
    logtest::DefaultLogger logger;
    NIM_LOG(Severity_NOTICE) << "text";
    NIM_LOG_TRAPPED(Severity_ERROR, std::runtime_error("it broke"), "reading failed");
    logtest::OwnLogger own;
    log::Module nearest("nearest", own.write);
    Component{nearest}.run();
    EXPECT_EQ("nearest NOTICE Statement : text\n", own.taken());
    EXPECT_EQ("app NOTICE Statement : text\n"
              "app ERROR Statement : reading failed : it broke\n",
              logger.taken());
}

}

namespace {

TEST(StatementTrapped, DisabledStatementEvaluatesNoArgumentAndEnabledOneEachOnce)
{
    logtest::DefaultLogger logger;
    int exceptions = 0;
    int messages = 0;
    const std::runtime_error exc("it broke");
    const auto exception = [&]() -> const std::exception& {
        ++exceptions;
        return exc;
    };
    const auto message = [&] {
        ++messages;
        return String("reading failed");
    };
    NIM_LOG_TRAPPED(Severity_INFO, exception(), message());
    EXPECT_EQ(0, exceptions);
    EXPECT_EQ(0, messages);
    NIM_LOG_TRAPPED(Severity_WARNING, exception(), message());
    EXPECT_EQ(1, exceptions);
    EXPECT_EQ(1, messages);
    EXPECT_EQ("global WARNING Statement : reading failed : it broke\n", logger.taken());
}

TEST(StatementTrapped, ShowsTheSystemErrorsNumber)
{
    logtest::DefaultLogger logger;
    const sys::system_error error(2, "no such file");
    if (error.error() == 2)
        NIM_LOG_TRAPPED(Severity_WARNING, error, "opening failed");
    else
        ADD_FAILURE();
    EXPECT_EQ("global WARNING Statement : opening failed : 2 : no such file\n", logger.taken());
}

TEST(StatementTrapped, MoreTextMayFollow)
{
    logtest::DefaultLogger logger;
    NIM_LOG_TRAPPED(Severity_WARNING, std::runtime_error("it broke"), "opening failed") << "and more";
    EXPECT_EQ("global WARNING Statement : opening failed : it broke\nand more\n", logger.taken());
}

}
