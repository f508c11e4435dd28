#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/sys/SysError.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <typeinfo>

namespace {

using namespace logtest;
using com::kor::dal::nim::sys::system_error;
using log::Write;
using logfiletest::AsNobody;
using logfiletest::WRITE_ERROR_MESSAGE;
using logfiletest::Folder;

/** Expects two records on standard error after one message, if the file may not be created. */
void expectOneErrorMessageWithoutPermission(Write& logger)
{
    const Folder folder;
    std::filesystem::create_directory(folder / "locked");
    std::filesystem::permissions(folder / "locked", std::filesystem::perms(0700));
    Captured err(std::cerr);
    logger.setOutputMask(0);
    logger.setFallback(true);
    const AsNobody nobody;
    logger.setPath(folder / "locked/a.log");
    err.taken();
    writeError(logger, "text");
    writeError(logger, "more");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + " : text\n : more\n", err.taken());
}

TEST(Fallback, IsOffInitially)
{
    Write logger;
    EXPECT_FALSE(logger.getFallback());
    logger.setPath("/nowhere/at/all.log");
    EXPECT_THROW(writeError(logger, "text"), system_error);
    EXPECT_FALSE(logger.setFallback(true));
    EXPECT_TRUE(logger.setFallback(false));
}

TEST(Fallback, WritesToStandardErrorIfTheFileCannotBeOpened)
{
    Captured err(std::cerr);
    Write logger;
    logger.setOutputMask(0);
    logger.setFallback(true);
    logger.setPath("/nowhere/at/all.log");
    writeError(logger, "text\n");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + " : text\n", err.taken());
    writeError(logger, "more");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + " : more\n", err.taken());
    EXPECT_EQ("/nowhere/at/all.log", logger.getPath());
}

TEST(Fallback, PrintsOneErrorMessageIfThePathIsCleared)
{
    Write logger;
    expectOneErrorMessageWithoutPermission(logger);
    EXPECT_EQ("", logger.getPath());
}

TEST(Fallback, OpensAPathThatIsKeptAgainForEachRecord)
{
    const Folder folder;
    Captured err(std::cerr);
    Write logger;
    logger.setOutputMask(0);
    logger.setFallback(true);
    logger.setPath(folder / "sub/sub/a.log");
    writeError(logger, "text");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + " : text\n", err.taken());
    std::filesystem::create_directory(folder / "sub");
    writeError(logger, "more");
    EXPECT_EQ("", err.taken());
    EXPECT_EQ(" : more\n", logfiletest::contentOf(folder / "sub/sub/a.log"));
}

TEST(Fallback, AppliesToTheDefaultLoggerAndItsReports)
{
    DefaultLogger logger;
    Captured err(std::cerr);
    logger->setFallback(true);
    logger.taken();
    EXPECT_NO_THROW(logger->setPath("/nowhere/at/all.log"));
    EXPECT_EQ(WRITE_ERROR_MESSAGE
                  + changed("OutputPath", "\"<user assigned stream>\"", "\"/nowhere/at/all.log\""),
              err.taken());
    NIM_LOG(Severity_ERROR) << "text";
    EXPECT_EQ(WRITE_ERROR_MESSAGE + "global ERROR FallbackTest.cpp : text\n", err.taken());
}

TEST(Fallback, AppliesToASubclass)
{
    struct Subclass : Write
    {
    } logger;
    Captured err(std::cerr);
    logger.setOutputMask(0);
    logger.setPath("/nowhere/at/all.log");
    EXPECT_THROW(writeError(logger, "text"), system_error);
    logger.setFallback(true);
    err.taken();
    writeError(logger, "text \n");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + " : text\n", err.taken());
}

TEST(Fallback, PrintsOneErrorMessageForASubclassIfThePathIsCleared)
{
    struct Subclass : Write
    {
    } logger;
    expectOneErrorMessageWithoutPermission(logger);
}

TEST(Fallback, IsReported)
{
    DefaultLogger logger;
    logger->setFallback(true);
    logger->setFallback(true);
    EXPECT_EQ(changed("Fallback", "false", "true"), logger.taken());
}

TEST(Fallback, IsAKeyOfTheConfiguration)
{
    Captured err(std::cerr);
    Write logger;
    logger.setOutputMask(0);
    com::kor::dal::nim::io::Properties settings;
    settings.setProperty("com.kor.dal.nim.log.Control.fallback.enable", "TRUE");
    settings.setProperty("com.kor.dal.nim.log.Control.file", "/nowhere/at/all.log");
    logger.setConfiguration(settings);
    EXPECT_TRUE(logger.getFallback());
    writeError(logger, "text");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + " : text\n", err.taken());
    settings.setProperty("com.kor.dal.nim.log.Control.fallback.enable", "off");
    logger.setConfiguration(settings);
    EXPECT_FALSE(logger.getFallback());
}

TEST(Fallback, ThrowsForALoggerThatIsNotAWrite)
{
    PlainLog logger;
    EXPECT_FALSE(logger.getFallback());
    EXPECT_THROW(logger.setFallback(true), std::bad_cast);
}

}
