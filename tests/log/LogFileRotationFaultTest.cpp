#include "LogFileFixture.hpp"

#include <support/Valgrind.hpp>

#include <gmock/gmock.h>

namespace {

using namespace logfiletest;

/** Rotations that fail. No line is lost, and no call fails. */
class LogFileRotationFaultTest : public LogFileFixture
{
protected:
    /** Expects the trace of a failed rotation, and further records on standard error. */
    void expectReverted(const String& error)
    {
        const String traces = err.take();
        const String last = "LogFile:#:switchFile(): ERROR: " + error + "\n";
        EXPECT_THAT(traces, testing::EndsWith(last));
        expectStandardError();
        file->log("next");
        EXPECT_EQ("next\n", err.take());
    }
};

TEST_F(LogFileRotationFaultTest, GapInTheNumbersIsFilled)
{
    create(old(0), "zero");
    create(old(1), "one");
    create(old(5), "five");
    open(10);
    file->log("0123456789");
    EXPECT_EQ("LogFile:#:switchFile(): Switching log file [" + path + "] ...\n"
                  + "LogFile:#:switchFile(): numFiles=3 maxFiles=0\n" + "LogFile:#:switchFile(): Moving ["
                  + old(1) + "] to [" + old(2) + "]\n" + "LogFile:#:switchFile(): Moving [" + old(0)
                  + "] to [" + old(1) + "]\n" + "LogFile:#:switchFile(): Moving [" + path + "] to [" + old(0)
                  + "]\n",
              err.take());
    EXPECT_EQ("0123456789\n", contentOf(old(0)));
    EXPECT_EQ("zero", contentOf(old(1)));
    EXPECT_EQ("one", contentOf(old(2)));
    EXPECT_EQ("five", contentOf(old(5)));
    for (int i = 0; i < 3; ++i) {
        file->log("9876543210");
    }
    EXPECT_EQ("one", contentOf(old(5))) << "moved up to the gap";
    EXPECT_EQ("five", contentOf(old(6))) << "moved up when the gap was closed";
    EXPECT_EQ("zero", contentOf(old(4)));
}

TEST_F(LogFileRotationFaultTest, MissingNewestOldFileIsReplacedByTheLiveOne)
{
    create(old(1), "one");
    open(10, 3);
    file->log("0123456789");
    EXPECT_EQ("0123456789\n", contentOf(old(0)));
    EXPECT_EQ("one", contentOf(old(1)));
    EXPECT_FALSE(exists(old(2)));
    EXPECT_TRUE(file->is_open());
}

TEST_F(LogFileRotationFaultTest, SettingThePathAgainResumesAFailedRotation)
{
    open(10);
    file->log("one");
    std::filesystem::remove(path);
    file->log("0123456789");
    expectReverted("Failed to move old log files: No such file or directory");
    file->setPath(path);
    file->log("back again");
    EXPECT_EQ("back again\n", contentOf(old(0)));
}

TEST_F(LogFileRotationFaultTest, DirectoryInThePlaceOfTheNewestOldFileIsShifted)
{
    open(10);
    createFullDirectory(old(0));
    file->log("0123456789");
    EXPECT_EQ("0123456789\n", contentOf(old(0)));
    EXPECT_TRUE(exists(old(1) + "/inside"));
    EXPECT_TRUE(file->is_open());
}

TEST_F(LogFileRotationFaultTest, OldFileReplacedByADirectoryIsShifted)
{
    open(10);
    file->log("0123456789");
    std::filesystem::remove(old(0));
    createFullDirectory(old(0));
    file->log("9876543210");
    EXPECT_TRUE(std::filesystem::is_directory(old(1)));
    EXPECT_EQ("9876543210\n", contentOf(old(0)));
    EXPECT_TRUE(file->is_open());
}

TEST_F(LogFileRotationFaultTest, FileReplacedByADirectoryIsRenamed)
{
    open(10);
    file->log("one");
    std::filesystem::rename(path, folder / "moved");
    std::filesystem::create_directory(path);
    file->log("0123456789");
    EXPECT_EQ("one\n0123456789\n", contentOf(folder / "moved"));
    EXPECT_TRUE(std::filesystem::is_directory(old(0)));
    EXPECT_EQ("", contentOf(path));
    file->log("two");
    EXPECT_EQ("two\n", contentOf(path));
}

TEST_F(LogFileRotationFaultTest, MissingOldestFileIsOnlyTraced)
{
    create(old(0), "zero");
    open(10, 1);
    std::filesystem::remove(old(0));
    file->log("0123456789");
    EXPECT_EQ("LogFile:#:switchFile(): Switching log file [" + path + "] ...\n"
                  + "LogFile:#:switchFile(): numFiles=1 maxFiles=1\n" + "LogFile:#:switchFile(): Removing ["
                  + old(0) + "]\n" + "LogFile:#:switchFile(): Failed to remove [" + old(0)
                  + "]: No such file or directory\n" + "LogFile:#:switchFile(): Moving [" + path + "] to ["
                  + old(0) + "]\n",
              err.take());
    EXPECT_EQ("0123456789\n", contentOf(old(0)));
    EXPECT_TRUE(file->is_open());
}

TEST_F(LogFileRotationFaultTest, OldestFileThatCannotBeDeletedIsShifted)
{
    create(old(0), "zero");
    createFullDirectory(old(1));
    open(10, 2);
    file->log("0123456789");
    EXPECT_EQ("LogFile:#:switchFile(): Switching log file [" + path + "] ...\n"
                  + "LogFile:#:switchFile(): numFiles=2 maxFiles=2\n" + "LogFile:#:switchFile(): Removing ["
                  + old(1) + "]\n" + "LogFile:#:switchFile(): Failed to remove [" + old(1)
                  + "]: Directory not empty\n" + "LogFile:#:switchFile(): Moving [" + old(1) + "] to ["
                  + old(2) + "]\n" + "LogFile:#:switchFile(): Moving [" + old(0) + "] to [" + old(1) + "]\n"
                  + "LogFile:#:switchFile(): Moving [" + path + "] to [" + old(0) + "]\n",
              err.take());
    EXPECT_EQ("0123456789\n", contentOf(old(0)));
    EXPECT_EQ("zero", contentOf(old(1)));
    EXPECT_TRUE(exists(old(2) + "/inside"));
    EXPECT_TRUE(file->is_open());
}

TEST_F(LogFileRotationFaultTest, RemovedDirectoryRevertsToStandardError)
{
    file->setPath(folder / "gone/server.log");
    file->setMaxFileSize(100);
    file->log("one");
    std::filesystem::remove_all(folder / "gone");
    file->log("two");
    EXPECT_EQ("", err.take());
    EXPECT_TRUE(file->is_open());
    file->log(String(100, 'x'));
    expectReverted("Failed to move old log files: No such file or directory");
}

TEST_F(LogFileRotationFaultTest, ReadOnlyDirectoryRevertsToStandardError)
{
    open(10);
    file->log("one");
    ASSERT_EQ(0, ::chmod(folder.path().c_str(), 0555));
    {
        const AsNobody nobody;
        file->log("0123456789");
    }
    ASSERT_EQ(0, ::chmod(folder.path().c_str(), 0755));
    expectReverted("Failed to move old log files: Permission denied");
    EXPECT_EQ("one\n0123456789\n", contentOf(path));
}

TEST_F(LogFileRotationFaultTest, NameThatIsTooLongRevertsToStandardError)
{
    const String name = folder / String(255, 'n');
    file->setPath(name);
    file->setMaxFileSize(10);
    file->log("0123456789");
    expectReverted("Failed to move old log files: File name too long");
    EXPECT_EQ("0123456789\n", contentOf(name));
}

TEST_F(LogFileRotationFaultTest, NewFileThatCannotBeOpenedRevertsToStandardError)
{
#ifdef DALNIM_SANITIZED
    GTEST_SKIP() << "the undefined behaviour sanitizer looks at memory through a pipe of its own";
#endif
    if (support::isUnderValgrind()) {
        GTEST_SKIP() << "valgrind has descriptors of its own";
    }
    open(10);
    file->log("one");
    {
        const Limit descriptors(RLIMIT_NOFILE, 0);
        file->log("0123456789");
    }
    EXPECT_EQ("LogFile:#:switchFile(): Switching log file [" + path + "] ...\n"
                  + "LogFile:#:switchFile(): numFiles=0 maxFiles=0\n" + "LogFile:#:switchFile(): Moving ["
                  + path + "] to [" + old(0) + "]\n"
                  + "LogFile:#:switchFile(): ERROR: Failed to open log file [" + path
                  + "]Too many open files\n",
              err.take());
    expectStandardError();
    EXPECT_EQ("one\n0123456789\n", contentOf(old(0)));
    EXPECT_FALSE(exists(path));
    file->log("next");
    EXPECT_EQ("next\n", err.take());
}

}
