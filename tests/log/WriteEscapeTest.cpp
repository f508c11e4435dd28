#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/sys/SysError.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

namespace {

using namespace logtest;
using log::Module;

/** The line of a record with this text, by a logger that escapes control characters. */
String escaped(const String& text)
{
    OwnLogger logger;
    logger.write.setEscapeControls(true);
    writeError(logger.write, text);
    return logger.taken();
}

TEST(EscapeControls, IsOffAtFirst)
{
    OwnLogger logger;
    EXPECT_FALSE(logger.write.getEscapeControls());
    writeError(logger.write, "a\nb\x1b[2J\\");
    EXPECT_EQ("global ERROR Source : a\nb\x1b[2J\\\n", logger.taken());
    EXPECT_FALSE(logger.write.setEscapeControls(true));
    EXPECT_TRUE(logger.write.setEscapeControls(false));
    EXPECT_FALSE(logger.write.getEscapeControls());
}

TEST(EscapeControls, WritesControlCharactersByTheirNameInC)
{
    EXPECT_EQ("global ERROR Source : \\a\\b\\f\\n\\r\\v|\n", escaped("\a\b\f\n\r\v|"));
}

TEST(EscapeControls, WritesOtherControlCharactersAsTwoHexDigits)
{
    EXPECT_EQ("global ERROR Source : \\x00\\x01\\x0e\\x1b[31m\\x1f\\x7f|\n",
              escaped(String("\0\1\x0e\x1b[31m\x1f\x7f|", 11)));
}

TEST(EscapeControls, DoublesTheBackslash)
{
    EXPECT_EQ("global ERROR Source : C:\\\\new\\\\\n", escaped("C:\\new\\"));
}

TEST(EscapeControls, KeepsTabsAndBytesAboveAscii)
{
    EXPECT_EQ("global ERROR Source : a\tb \xc3\xa9 \x80\xff ~\n", escaped("a\tb \xc3\xa9 \x80\xff ~"));
}

TEST(EscapeControls, TrimsBeforeItEscapes)
{
    EXPECT_EQ("global ERROR Source : text\n", escaped("text \t\r\n\v\f\n"));
    EXPECT_EQ("global ERROR Source : text\\n\\x00\n", escaped(String("text\n\0 \n", 8)));
    EXPECT_EQ("global ERROR Source : \n", escaped(" \n\n"));
    EXPECT_EQ("global ERROR Source : \n", escaped(""));
}

TEST(EscapeControls, AppliesToTextsLongerThanTheLineBuffer)
{
    String expected = "global ERROR Source : ";
    for (int i = 0; i < 3000; ++i) {
        expected += "\\n";
    }
    EXPECT_EQ(expected + "|\n", escaped(String(3000, '\n') + '|'));
}

TEST(EscapeControls, AppliesToTheNameOfTheModule)
{
    OwnLogger logger;
    logger.write.setEscapeControls(true);
    Module module("a\nFri\\b", logger.write);
    NIM_LOG_TO(module, Severity_ERROR) << "text";
    EXPECT_EQ("a\\nFri\\\\b ERROR WriteEscapeTest.cpp : text\n", logger.taken());
}

TEST(EscapeControls, AppliesToTheTextOfExceptions)
{
    OwnLogger logger;
    logger.write.setEscapeControls(true);
    log::Header header(log::Severity_INFO, "x/Source", 7);
    header.insertTrapped(std::runtime_error("first\nsecond\x1b"), "what");
    logger.write.log(Module::DEFAULT_INSTANCE, header, true);
    EXPECT_EQ("global INFO Source : what : first\\nsecond\\x1b\n", logger.taken());
}

/** A logger that sees each line on its way. */
struct Subclass : log::Write
{
    using Write::log;
    void log(const String& msg) override
    {
        line = msg;
    }

    String line;
};

TEST(EscapeControls, AppliesToRecordsOfASubclass)
{
    std::ostringstream sink;
    Subclass logger;
    logger.setStream(asIos(sink));
    logger.setOutputMask(FIXED_FIELDS);
    Module module("a\nb", logger);
    NIM_LOG_TO(module, Severity_ERROR) << "x\ny \n";
    EXPECT_EQ("a\nb ERROR WriteEscapeTest.cpp : x\ny \n", logger.line);
    logger.setEscapeControls(true);
    NIM_LOG_TO(module, Severity_ERROR) << "x\ny \n";
    EXPECT_EQ("a\\nb ERROR WriteEscapeTest.cpp : x\\ny", logger.line);
}

TEST(EscapeControls, IsReportedOnOneLine)
{
    DefaultLogger logger;
    logger->setEscapeControls(true);
    logger->setEscapeControls(true);
    EXPECT_EQ(String(REPORT) + "EscapeControls\\n\told: false\\n\tnew: true\n", logger.taken());
    logger->setEscapeControls(false);
    EXPECT_EQ(changed("EscapeControls", "true", "false"), logger.taken());
}

TEST(EscapeControls, IsAKeyOfTheConfiguration)
{
    log::Write logger;
    com::kor::dal::nim::io::Properties settings;
    settings.setProperty("com.kor.dal.nim.log.Control.escape.enable", "True");
    logger.setConfiguration(settings);
    EXPECT_TRUE(logger.getEscapeControls());
    logger.setConfiguration(com::kor::dal::nim::io::Properties());
    EXPECT_TRUE(logger.getEscapeControls()) << "a key that is absent changes nothing";
    settings.setProperty("com.kor.dal.nim.log.Control.escape.enable", "no");
    logger.setConfiguration(settings);
    EXPECT_FALSE(logger.getEscapeControls());
}

TEST(EscapeControls, IsRefusedByALoggerOfAnotherKind)
{
    PlainLog logger;
    EXPECT_FALSE(logger.getEscapeControls());
    EXPECT_THROW(logger.setEscapeControls(true), std::bad_cast);
}

}
