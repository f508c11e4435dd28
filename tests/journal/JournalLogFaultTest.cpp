// Records for the journal during which memory runs out.

#include "JournalSocket.hpp"

#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/journal/JournalLog.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Statement.hpp>

#include <support/OwnDisk.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>

namespace {

using com::kor::dal::nim::journal::JournalLog;
using com::kor::dal::nim::log::Module;
using journaltest::JournalSocket;
namespace nim = com::kor::dal::nim;

/** A logger whose fallback is a string stream. */
struct Logger
{
    Logger() : logger("server"), module("faults", logger)
    {
        logger.setStream(static_cast<std::ios&>(fallback));
        logger.setOutputMask(0);
    }

    std::ostringstream fallback;
    JournalLog logger;
    Module module;
};

class JournalLogFault : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const int error = support::ownDiskError("/run")) {
            GTEST_SKIP() << "/run cannot be replaced: " << std::strerror(error);
        }
    }

    /**
     * Fails each call of a kind during a statement. Its record must be sent or, if it may be, written to the
     * fallback; or the statement throws std::bad_alloc, and nothing is sent or written.
     */
    static void walk(faults::Call call, bool mayFallBack)
    {
        const int status = support::inChildProcess([&] {
            ASSERT_TRUE(support::mountOwnDisk("/run", "size=1m")) << std::strerror(errno);
            const JournalSocket journal;
            const std::string text(600, 't');
            const auto log = [&](const std::unique_ptr<Logger>& logger) {
                NIM_LOG_TO(logger->module, Severity_ERROR) << text << "\nname=value";
            };
            const auto check = [&](const std::unique_ptr<Logger>& logger, bool done) {
                const std::string written = logger->fallback.str();
                logger->fallback.str("");
                if (!done) {
                    EXPECT_FALSE(journal.hasEntry());
                    EXPECT_EQ("", written);
                } else if (mayFallBack && !journal.hasEntry()) {
                    EXPECT_EQ(" : " + text + "\nname=value\n", written);
                } else {
                    EXPECT_EQ(text + "\nname=value", journal.next()["MESSAGE"]);
                    EXPECT_FALSE(journal.hasEntry());
                    EXPECT_EQ("", written);
                }
            };
            faults::WalkOptions options;
            options.call = call;
            const unsigned int calls =
                faults::walkAllocations([] { return std::make_unique<Logger>(); }, log, check, options);
            EXPECT_GE(calls, 1U);
        });
        EXPECT_EQ(0, status);
    }
};

TEST_F(JournalLogFault, RecordIsSentCompletelyOrNotAtAll)
{
    walk(faults::Call::NEW, false);
}

TEST_F(JournalLogFault, RecordIsWrittenToTheFallbackIfTheSocketCannotBeAccessed)
{
    walk(faults::Call::ACCESS, true);
}

}
