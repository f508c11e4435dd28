// Memory that runs out in throttled statements, and in the records of modules with a limit.

#include "layer/Walk.hpp"
#include "log/LogFileFixture.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/ThrottledStatement.hpp>
#include <dalnim/log/Write.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::log::Control;
using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Severity_ERROR;
using com::kor::dal::nim::log::Severity_WARNING;
using com::kor::dal::nim::log::StatementThrottle;
using com::kor::dal::nim::log::ThrottledStatement;
using com::kor::dal::nim::log::Write;

const String BEGIN = " : The module \"faults\" exceeds 1 record per second: further ones are held back\n";
const String END = " : The module \"faults\" is within its limit again: 2 records were held back\n";

/** A logger that writes to a file, without a prefix. */
struct Logger
{
    explicit Logger(const String& path, const String& name = "faults") : module(name, write)
    {
        write.setOutputMask(0);
        write.setPath(path);
    }

    /** Executes a statement of which every second record is written. */
    void executeSecond(const String& text)
    {
        ThrottledStatement statement(module, Severity_ERROR);
        if (statement.open && statement.isEvery(throttle, 2)) {
            statement += statement.header("faults", 1).os() << text;
        }
    }

    Write write;
    Module module;
    StatementThrottle throttle;
};
typedef std::unique_ptr<Logger> LoggerRef;

class LimitsFault : public testing::Test
{
protected:
    LoggerRef newLogger() const
    {
        std::filesystem::remove(path);
        return std::make_unique<Logger>(path);
    }

    /** Returns a logger with a limit that its module has reached. */
    LoggerRef atItsLimit() const
    {
        LoggerRef logger = newLogger();
        logger->write.setModuleLimits({{"faults", 1, 1, Severity_ERROR}});
        NIM_LOG_TO(logger->module, Severity_WARNING) << "first";
        return logger;
    }

    const Folder folder;
    const String path = folder / "server.log";
};

TEST_F(LimitsFault, ThrottledRecordIsWrittenCompletelyWithItsNumberOrNotAtAll)
{
    for (const unsigned int size : {10U, 1000U, 1010U, 1017U, 1018U, 1023U, 1024U, 1025U, 5000U}) {
        SCOPED_TRACE(size);
        const String text(size, 't');
        faults::walkAllocations(
            [this] {
                LoggerRef logger = newLogger();
                logger->executeSecond("first");
                logger->executeSecond("held back");
                return logger;
            },
            [&](LoggerRef& logger) { logger->executeSecond(text); },
            [&](LoggerRef&, bool done) {
                EXPECT_EQ(" : first\n" + (done ? " : " + text + " (1 held back)\n" : String()),
                          contentOf(path));
            });
    }
}

TEST_F(LimitsFault, BeginningOfAFloodIsReportedOnce)
{
    const unsigned int allocations = faults::walkAllocations(
        [this] { return atItsLimit(); },
        [](LoggerRef& logger) { NIM_LOG_TO(logger->module, Severity_WARNING) << "held back"; },
        [this](LoggerRef&, bool done) {
            EXPECT_EQ(" : first\n" + (done ? BEGIN : String()), contentOf(path));
        });
    EXPECT_GE(allocations, 1u);
}

TEST_F(LimitsFault, ReportThatNeedsMemoryIsWrittenCompletelyOrWithALaterRecord)
{
    // The text does not fit into the memory that a statement has.
    const String name(5000, 'm');
    const String begin =
        " : The module \"" + name + "\" exceeds 1 record per second: further ones are held back\n";
    faults::walkAllocations(
        [&] {
            std::filesystem::remove(path);
            auto logger = std::make_unique<Logger>(path, name);
            logger->write.setModuleLimits({{"m*", 1, 1, Severity_ERROR}});
            NIM_LOG_TO(logger->module, Severity_WARNING) << "first";
            return logger;
        },
        [](LoggerRef& logger) { NIM_LOG_TO(logger->module, Severity_WARNING) << "held back"; },
        [&](LoggerRef& logger, bool done) {
            EXPECT_EQ(" : first\n" + (done ? begin : String()), contentOf(path));
            NIM_LOG_TO(logger->module, Severity_WARNING) << "held back";
            EXPECT_EQ(" : first\n" + begin, contentOf(path));
        });
}

TEST_F(LimitsFault, RecordOfANewModulePassesOrFails)
{
    faults::walkAllocations(
        [this] {
            LoggerRef logger = newLogger();
            logger->write.setModuleLimits({{"a.module.with.a.name.that.needs.memory", 5, 5, Severity_WARNING},
                                           {"faults", 1, 1, Severity_WARNING}});
            NIM_LOG_TO(logger->module, Severity_ERROR) << "first";
            return logger;
        },
        [](LoggerRef& logger) { NIM_LOG_TO(logger->module, Severity_WARNING) << "second"; },
        [this](LoggerRef&, bool done) {
            EXPECT_EQ(" : first\n" + String(done ? " : second\n" : ""), contentOf(path));
        });
}

TEST_F(LimitsFault, NewLimitsAreInEffectCompletelyOrNotAtAll)
{
    faults::walkAllocations(
        [this] {
            LoggerRef logger = atItsLimit();
            NIM_LOG_TO(logger->module, Severity_WARNING) << "held back";
            NIM_LOG_TO(logger->module, Severity_WARNING) << "held back";
            return logger;
        },
        [](LoggerRef& logger) {
            logger->write.setModuleLimits({{"another.module.with.a.long.name", 2, 3, Severity_ERROR}});
        },
        [this](LoggerRef& logger, bool done) {
            const Control::ModuleLimitColl limits = logger->write.getModuleLimits();
            ASSERT_EQ(1u, limits.size());
            const bool isNew = limits[0].modules == "another.module.with.a.long.name" && limits[0].burst == 3;
            EXPECT_TRUE(isNew || (!done && limits[0].modules == "faults" && limits[0].burst == 1));
            // If the report fails, the new limits remain in effect.
            EXPECT_THAT(contentOf(path), testing::AnyOf(" : first\n" + BEGIN, " : first\n" + BEGIN + END));
        });
}

}
