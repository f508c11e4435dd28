#include "LogFileFixture.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gmock/gmock.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;
using com::kor::dal::nim::sys::system_error;
using testing::HasSubstr;

/** Statements on a logger of their own, without a prefix. */
class WriteFaultTest : public testing::Test
{
protected:
    WriteFaultTest() : path(folder / "server.log"), module("faults", logger)
    {
        logger.setOutputMask(0);
    }

    Folder folder;
    const String path;
    CapturedCerr err;
    Write logger;
    Module module;
};

TEST_F(WriteFaultTest, RecordsThatTheFileRejectsAreWrittenToStandardError)
{
    createFullFile(path);
    logger.setPath(path);
    NIM_LOG_TO(module, Severity_ERROR) << "one";
    NIM_LOG_TO(module, Severity_ERROR) << "two";
    EXPECT_EQ(WRITE_ERROR_MESSAGE + " : one\n" + WRITE_ERROR_MESSAGE + " : two\n", err.take());
    EXPECT_EQ(path, logger.getPath());
}

TEST_F(WriteFaultTest, FileThatMayNotBeCreatedFailsOneStatement)
{
    ASSERT_EQ(0, ::chmod(folder.path().c_str(), 0555));
    logger.setPath(path);
    {
        const AsNobody nobody;
        try {
            NIM_LOG_TO(module, Severity_ERROR) << "one";
            FAIL() << "logged";
        } catch (const system_error& error) {
            EXPECT_EQ(13, error.error());
        }
        EXPECT_NO_THROW(NIM_LOG_TO(module, Severity_ERROR) << "two");
    }
    EXPECT_EQ(" : two\n", err.take());
    EXPECT_EQ("", logger.getPath());
}

TEST_F(WriteFaultTest, FailedRotationFailsNoStatement)
{
    // With a further ending the name is too long.
    const String longest = folder / String(255, 'n');
    logger.setPath(longest);
    logger.setMaxFileSize(10);
    EXPECT_NO_THROW(NIM_LOG_TO(module, Severity_ERROR) << "0123456789");
    EXPECT_THAT(err.take(), HasSubstr("ERROR: Failed to move old log files: File name too long\n"));
    EXPECT_NO_THROW(NIM_LOG_TO(module, Severity_ERROR) << "next");
    EXPECT_EQ(" : next\n", err.take());
    EXPECT_EQ(" : 0123456789\n", contentOf(longest));
}

// The default logger begins each output with its configuration. What this does to it ends with the
// child process.

TEST_F(WriteFaultTest, DefaultLoggerLeavesAFullDevice)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  createFullFile(path);
                  com_kor_dal_nim_log_control.setPath(path);
                  const String text = err.take();
                  const std::size_t message =
                      text.find(" ERROR Write: Unable to write to log output stream \"" + path
                                + "\": No space left on device; "
                                  "Log Configuration:\n\tOutputPath:   \"STDERR\"\n");
                  const std::size_t record = text.find("Changing logging setting: OutputPath\n");
                  EXPECT_NE(String::npos, message) << text;
                  EXPECT_NE(String::npos, record) << text;
                  EXPECT_LT(message, record);
                  EXPECT_THAT(text, testing::Not(HasSubstr(WRITE_ERROR_MESSAGE)));

                  NIM_LOG(Severity_ERROR) << "next";
                  EXPECT_THAT(err.take(), testing::MatchesRegex("[^\n]* : next\n"));
                  EXPECT_EQ("", com_kor_dal_nim_log_control.getPath());
              }));
}

TEST_F(WriteFaultTest, DefaultLoggerThrowsUntilStandardErrorRecovers)
{
    EXPECT_EQ(
        0, inChildProcess([this] {
            com_kor_dal_nim_log_control.setPath(path);
            std::cerr.setstate(std::ios_base::badbit);
            EXPECT_THROW(com_kor_dal_nim_log_control.setStream("STDERR"), system_error);
            for (int i = 0; i < 2; ++i) {
                try {
                    NIM_LOG(Severity_ERROR) << "lost";
                    ADD_FAILURE() << "logged";
                } catch (const system_error& error) {
                    EXPECT_THAT(error.what(),
                                testing::StartsWith("Unable to write to log output stream \"STDERR\": "));
                }
            }
            std::cerr.clear();
            err.take();
            NIM_LOG(Severity_ERROR) << "next";
            EXPECT_THAT(err.take(),
                        testing::ContainsRegex("INFO Write: Log Configuration:\n(\t.*\n)+.* : next\n$"));
        }));
}

}
