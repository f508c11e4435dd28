#include <dalnim/log/Write.hpp>

#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace logtest;
using log::Write;

log::Severity severity(int value)
{
    return static_cast<log::Severity>(value);
}

TEST(SetSeverity, ReportsTheNames)
{
    DefaultLogger logger;
    logger->setSeverity(log::Severity_DEBUG);
    EXPECT_EQ(changed("Severity", "NOTICE", "DEBUG"), logger.taken());
    EXPECT_EQ(log::Severity_DEBUG, logger->getSeverity());
    logger->setSeverity(log::Severity_DEBUG);
    EXPECT_EQ("", logger.taken());
    logger->setSeverity(log::Severity_NONE);
    EXPECT_EQ(changed("Severity", "DEBUG", "NONE"), logger.taken());
    logger->setSeverity("FATAL");
    EXPECT_EQ(changed("Severity", "NONE", "FATAL"), logger.taken());
}

TEST(SetSeverity, EndsAMask)
{
    DefaultLogger logger;
    logger->setSeverityMask(log::Severity_ERROR, true);
    logger.taken();
    EXPECT_EQ(log::Severity_ERROR, logger->getSeverity());
    logger->setSeverity(log::Severity_ERROR);
    EXPECT_EQ(changed("Severity", "ERROR", "ERROR"), logger.taken());
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger.write()));
    EXPECT_TRUE(logger->isSeveritySatisfied(log::Severity_FATAL));
    EXPECT_FALSE(logger->isSeveritySatisfied(log::Severity_WARNING));
}

TEST(SetSeverity, UnknownSeverityThrows)
{
    DefaultLogger logger;
    for (const int value : {-1, 8, 100}) {
        EXPECT_EQ("Illegal Severity",
                  textOf<std::out_of_range>([&] { logger->setSeverity(severity(value)); }));
        EXPECT_EQ("Illegal Severity",
                  textOf<std::out_of_range>([&] { logger->setSeverityMask(severity(value), true); }));
        EXPECT_EQ("Illegal Severity",
                  textOf<std::out_of_range>([&] { logger->setSeverityMask(severity(value), false); }));
        EXPECT_EQ("Illegal Severity", textOf<std::out_of_range>([&] {
                      logger->setSeverityMask(SeverityColl{severity(value)}, true);
                  }));
        EXPECT_EQ("Illegal Severity", textOf<std::out_of_range>([&] {
                      logger->setSeverityMask(SeverityColl{log::Severity_ERROR, severity(value)}, true);
                  }));
    }
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([&] { logger->setSeverity("debug"); }));
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([&] { logger->setSeverityMask("debug", true); }));
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([&] { logger->setSeverityMask(StringColl{"debug"}, true); }));
    EXPECT_EQ("Unrecognized NIM Log Severity", textOf<std::out_of_range>([&] {
                  logger->setSeverityMask(StringColl{"DEBUG", "error"}, true);
              }));
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity());
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger.write()));
}

TEST(SetSeverityMask, AddingOneSeverityStartsAMask)
{
    DefaultLogger logger;
    logger->setSeverityMask(log::Severity_ERROR, true);
    EXPECT_EQ(changed("SeverityMask", "0x0 [NONE]", "0x40 [ERROR]"), logger.taken());
    EXPECT_FALSE(logger->isSeveritySatisfied(log::Severity_FATAL)) << "a mask is no threshold";
    EXPECT_EQ(log::Severity_ERROR, logger->getSeverity());
    logger->setSeverityMask(log::Severity_ERROR, true);
    EXPECT_EQ("", logger.taken());
    logger->setSeverityMask("NOTICE", true);
    EXPECT_EQ(changed("SeverityMask", "0x40 [ERROR]", "0x50 [NOTICE,ERROR]"), logger.taken());
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity()) << "the lowest of the mask";
    logger->setSeverityMask(log::Severity_NOTICE, false);
    EXPECT_EQ(changed("SeverityMask", "0x50 [NOTICE,ERROR]", "0x40 [ERROR]"), logger.taken());
    logger->setSeverityMask(log::Severity_FATAL, false);
    EXPECT_EQ("", logger.taken()) << "it was not in the mask";
}

TEST(SetSeverityMask, RemovingTheLastBitLetsAllRecordsPass)
{
    DefaultLogger logger;
    logger->setSeverityMask(log::Severity_ERROR, true);
    logger.taken();
    logger->setSeverityMask(log::Severity_ERROR, false);
    EXPECT_EQ(changed("SeverityMask", "0x40 [ERROR]", "0x0 [NONE]"), logger.taken());
    EXPECT_EQ(log::Severity_NONE, logger->getSeverity());
    for (int value = 0; value < 8; ++value) {
        EXPECT_TRUE(logger->isSeveritySatisfied(severity(value))) << value;
    }
}

TEST(SetSeverityMask, RemovingAnAbsentBitLetsAllRecordsPass)
{
    DefaultLogger logger;
    logger->setSeverityMask(log::Severity_ERROR, false);
    EXPECT_EQ(changed("SeverityMask", "0x0 [NONE]", "0x0 [NONE]"), logger.taken());
    EXPECT_EQ(log::Severity_NONE, logger->getSeverity());
    logger->setSeverityMask(log::Severity_ERROR, false);
    EXPECT_EQ("", logger.taken());
}

TEST(SetSeverityMask, AddingNoneToAnEmptyMaskLetsAllRecordsPass)
{
    DefaultLogger logger;
    logger->setSeverityMask(log::Severity_NONE, true);
    EXPECT_EQ(changed("SeverityMask", "0x0 [NONE]", "0x0 [NONE]"), logger.taken());
    EXPECT_EQ(log::Severity_NONE, logger->getSeverity());
    EXPECT_TRUE(logger->isSeveritySatisfied(log::Severity_NONE));
}

TEST(SetSeverityMask, AddingNoneDoesNotChangeAMask)
{
    DefaultLogger logger;
    logger->setSeverityMask(log::Severity_ERROR, true);
    logger.taken();
    logger->setSeverityMask(log::Severity_NONE, true);
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ((SeverityColl{log::Severity_ERROR}), maskOf(logger.write()));
}

TEST(SetSeverityMask, RemovingNoneRestoresTheDefaultThreshold)
{
    DefaultLogger logger;
    logger->setSeverityMask(log::Severity_NONE, false);
    EXPECT_EQ("", logger.taken()) << "it is there";
    logger->setSeverityMask(log::Severity_ERROR, true);
    logger.taken();
    logger->setSeverityMask(log::Severity_NONE, false);
    EXPECT_EQ(changed("SeverityMask", "0x40 [ERROR]", "0x0 [NONE]"), logger.taken());
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity());
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger.write()));
    logger->setSeverity(log::Severity_TRACE);
    logger.taken();
    logger->setSeverityMask(log::Severity_NONE, false);
    EXPECT_EQ(changed("SeverityMask", "0x0 [NONE]", "0x0 [NONE]"), logger.taken());
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity());
}

TEST(SetSeverityMask, RemovingNoneUsesTheCurrentDefault)
{
    Write logger;
    log::Control::setSeverityDefault(log::Severity_WARNING);
    logger.setSeverityMask(log::Severity_NONE, false);
    log::Control::setSeverityDefault(log::Severity_NOTICE);
    EXPECT_EQ(log::Severity_WARNING, logger.getSeverity());
}

TEST(SetSeverityMask, AddsSeveralSeverities)
{
    DefaultLogger logger;
    logger->setSeverityMask(SeverityColl{log::Severity_ERROR, log::Severity_NOTICE, log::Severity_NONE},
                            true);
    EXPECT_EQ(changed("SeverityMask", "0x0 [NONE]", "0x50 [NOTICE,ERROR]"), logger.taken());
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity());
    EXPECT_EQ((SeverityColl{log::Severity_NOTICE, log::Severity_ERROR}), maskOf(logger.write()));
    logger->setSeverityMask(SeverityColl{log::Severity_ERROR, log::Severity_NOTICE}, true);
    EXPECT_EQ("", logger.taken());
    logger->setSeverityMask(StringColl{"TRACE", "DEBUG", "INFO", "WARNING", "FATAL", "NONE"}, true);
    EXPECT_EQ(
        changed("SeverityMask", "0x50 [NOTICE,ERROR]", "0xfe [TRACE,DEBUG,INFO,NOTICE,WARNING,ERROR,FATAL]"),
        logger.taken());
    EXPECT_EQ(log::Severity_TRACE, logger->getSeverity());
}

TEST(SetSeverityMask, OffWithSeveralSeveritiesKeepsExactlyThese)
{
    DefaultLogger logger;
    logger->setSeverityMask(SeverityColl{log::Severity_DEBUG, log::Severity_NOTICE, log::Severity_ERROR},
                            true);
    logger.taken();
    logger->setSeverityMask(SeverityColl{log::Severity_NOTICE, log::Severity_ERROR, log::Severity_FATAL},
                            false);
    EXPECT_EQ(changed("SeverityMask", "0x54 [DEBUG,NOTICE,ERROR]", "0x50 [NOTICE,ERROR]"), logger.taken());
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity());
    logger->setSeverityMask(StringColl{"TRACE", "DEBUG"}, false);
    EXPECT_EQ(changed("SeverityMask", "0x50 [NOTICE,ERROR]", "0x1 [NONE]"), logger.taken());
    EXPECT_EQ(log::Severity_NONE, logger->getSeverity());
    EXPECT_TRUE(logger->isSeveritySatisfied(log::Severity_NONE));
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger.write()));
}

TEST(SetSeverityMask, OffWithSeveralSeveritiesWithoutAMaskChangesNothing)
{
    DefaultLogger logger;
    logger->setSeverityMask(SeverityColl{log::Severity_NOTICE, log::Severity_ERROR}, false);
    logger->setSeverityMask(SeverityColl{log::Severity_NONE, log::Severity_NONE}, true);
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity());
}

TEST(SetSeverityMask, ListOfOneEqualsTheSingleForm)
{
    DefaultLogger logger;
    logger->setSeverityMask(SeverityColl{log::Severity_ERROR}, true);
    EXPECT_EQ(changed("SeverityMask", "0x0 [NONE]", "0x40 [ERROR]"), logger.taken());
    logger->setSeverityMask(StringColl{"DEBUG"}, true);
    EXPECT_EQ(changed("SeverityMask", "0x40 [ERROR]", "0x44 [DEBUG,ERROR]"), logger.taken());
    logger->setSeverityMask(SeverityColl{log::Severity_DEBUG}, false);
    EXPECT_EQ(changed("SeverityMask", "0x44 [DEBUG,ERROR]", "0x40 [ERROR]"), logger.taken())
        << "taken out, not kept";
    logger->setSeverityMask(StringColl{"NONE"}, false);
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity());
}

TEST(SetSeverityMask, EmptyListChangesNothing)
{
    DefaultLogger logger;
    logger->setSeverityMask(SeverityColl(), true);
    logger->setSeverityMask(SeverityColl(), false);
    logger->setSeverityMask(StringColl(), true);
    logger->setSeverityMask(StringColl(), false);
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ(log::Severity_NOTICE, logger->getSeverity());
}

TEST(GetSeverityMask, WithoutAMaskIsNoneAlone)
{
    Write logger;
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger));
    StringColl names{"cleared"};
    logger.getSeverityMask(names);
    EXPECT_EQ((StringColl{"NONE"}), names);
    logger.setSeverity(log::Severity_FATAL);
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger)) << "whatever the threshold is";
}

TEST(GetSeverityMask, ListsTheMaskInAscendingOrder)
{
    Write logger;
    logger.setSeverityMask(SeverityColl{log::Severity_FATAL, log::Severity_TRACE, log::Severity_NOTICE},
                           true);
    EXPECT_EQ((SeverityColl{log::Severity_TRACE, log::Severity_NOTICE, log::Severity_FATAL}), maskOf(logger));
    StringColl names{"cleared"};
    logger.getSeverityMask(names);
    EXPECT_EQ((StringColl{"TRACE", "NOTICE", "FATAL"}), names);
}

}
