// The counters of a logger whose records fail.

#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "log/LogFileFixture.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Severity_ERROR;
using com::kor::dal::nim::log::Statistics;
using com::kor::dal::nim::log::Write;
using faults::Call;
using faults::Fault;

/** A logger without prefixes that writes to a file, after its first record. */
class StatisticsFault : public testing::Test
{
protected:
    StatisticsFault() : module("faults", logger)
    {
        Statistics::enable();
        logger.setOutputMask(0);
        logger.setPath(folder / "server.log");
        NIM_LOG_TO(module, Severity_ERROR) << "first";
    }

    Statistics::Records records() const
    {
        return logger.getStatistics().records[Severity_ERROR];
    }

    const Folder folder;
    CapturedCerr err;
    Write logger;
    Module module;
};

TEST_F(StatisticsFault, RecordThatRunsOutOfMemoryIsCountedAsFailed)
{
    const String text(5000, 't');
    {
        Fault fault(Call::NEW, ENOMEM);
        const faults::Outcome outcome =
            faults::outcomeUnder(fault, [&] { NIM_LOG_TO(module, Severity_ERROR) << text; });
        EXPECT_EQ(faults::Outcome::NO_MEMORY, outcome.kind);
    }
    EXPECT_EQ(1u, records().failed);
    EXPECT_EQ(1u, records().written);
    NIM_LOG_TO(module, Severity_ERROR) << text;
    EXPECT_EQ(1u, records().failed);
    EXPECT_EQ(2u, records().written);
}

TEST_F(StatisticsFault, RecordThatTheFileRejectsIsCountedAsRescued)
{
    for (const int error : {EIO, ENOSPC, EDQUOT}) {
        const Statistics::Records before = records();
        {
            const Fault fault(Call::WRITE, error);
            NIM_LOG_TO(module, Severity_ERROR) << "text";
        }
        EXPECT_EQ(before.rescued + 1, records().rescued);
        EXPECT_EQ(before.written, records().written);
        EXPECT_EQ(before.bytes, records().bytes);
    }
    EXPECT_EQ(0u, records().failed);
}

TEST_F(StatisticsFault, RotationThatFailsAtAnyStepIsCounted)
{
    logger.setMaxFileSize(1);
    for (const Call call : {Call::RENAME, Call::OPEN}) {
        const Statistics before = logger.getStatistics();
        {
            const Fault fault(call, EACCES);
            NIM_LOG_TO(module, Severity_ERROR) << "text";
        }
        EXPECT_EQ(before.failedRotations + 1, logger.getStatistics().failedRotations);
        EXPECT_EQ(before.rotations, logger.getStatistics().rotations);
        EXPECT_EQ(before.total().written + 1, logger.getStatistics().total().written);
        logger.setPath(folder / "server.log");
        NIM_LOG_TO(module, Severity_ERROR) << "text";
        EXPECT_EQ(before.rotations + 1, logger.getStatistics().rotations);
    }
}

}
