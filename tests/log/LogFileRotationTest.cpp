#include "LogFileFixture.hpp"

#include <gmock/gmock.h>

#include <locale>

namespace {

using namespace logfiletest;
using testing::ElementsAre;

/** Rotations that succeed; see LogFileRotationFaultTest for those that fail. */
class LogFileRotationTest : public LogFileFixture
{
protected:
    /** Returns the traces of a rotation. */
    String switching(std::size_t numFiles, std::size_t maxFiles, const String& steps) const
    {
        return "LogFile:#:switchFile(): Switching log file [" + path + "] ...\n"
               + "LogFile:#:switchFile(): numFiles=" + std::to_string(numFiles)
               + " maxFiles=" + std::to_string(maxFiles) + "\n" + steps + "LogFile:#:switchFile(): Moving ["
               + path + "] to [" + old(0) + "]\n";
    }

    String moving(std::size_t from) const
    {
        return "LogFile:#:switchFile(): Moving [" + old(from) + "] to [" + old(from + 1) + "]\n";
    }

    String removing(std::size_t number) const
    {
        return "LogFile:#:switchFile(): Removing [" + old(number) + "]\n";
    }
};

TEST_F(LogFileRotationTest, LineAboveTheLimitIsWrittenAndThenTheFileRotates)
{
    open(100);
    const String line(150, 'x');
    file->log(line);

    EXPECT_EQ(line + "\n", contentOf(old(0)));
    EXPECT_EQ("", contentOf(path));
    EXPECT_TRUE(file->is_open());
    EXPECT_TRUE(file->is_valid());
    EXPECT_FALSE(file->is_reserved());
    EXPECT_EQ(path, file->getPath());
    EXPECT_EQ(switching(0, 0, ""), err.take());

    file->log("next");
    EXPECT_EQ("next\n", contentOf(path));
    EXPECT_EQ("", err.take());
}

TEST_F(LogFileRotationTest, FileRotatesAtTheLimitNotOneByteBelow)
{
    open(10);
    file->log("12345678");
    EXPECT_EQ("12345678\n", contentOf(path));
    EXPECT_FALSE(exists(old(0)));
    file->log("");
    EXPECT_EQ("12345678\n\n", contentOf(old(0)));
    EXPECT_EQ("", contentOf(path));
}

TEST_F(LogFileRotationTest, TrailingWhiteSpaceDoesNotCount)
{
    open(10);
    file->log("1234567" + String(100, ' '));
    EXPECT_FALSE(exists(old(0)));
}

TEST_F(LogFileRotationTest, SameStreamIsReopened)
{
    open(1);
    std::ostream* const stream = file->getStream();
    file->log("line");
    EXPECT_EQ(stream, file->getStream());
    auto* const reopened = dynamic_cast<std::ofstream*>(stream);
    ASSERT_NE(nullptr, reopened);
    EXPECT_TRUE(reopened->is_open());
}

TEST_F(LogFileRotationTest, OldestFileIsDeletedWhenTheNumberIsReached)
{
    create(old(0), "newer\n");
    create(old(1), "oldest\n");
    open(1, 2);
    file->log("line");

    EXPECT_EQ(switching(2, 2, removing(1) + moving(0)), err.take());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log", "server.log.0", "server.log.1"));
    EXPECT_EQ("", contentOf(path));
    EXPECT_EQ("line\n", contentOf(old(0)));
    EXPECT_EQ("newer\n", contentOf(old(1)));

    file->log("next");
    EXPECT_EQ(switching(2, 2, removing(1) + moving(0)), err.take());
    EXPECT_EQ("next\n", contentOf(old(0)));
    EXPECT_EQ("line\n", contentOf(old(1)));
}

TEST_F(LogFileRotationTest, WithoutANumberNothingIsEverDeleted)
{
    open(1);
    file->log("0");
    EXPECT_EQ(switching(0, 0, ""), err.take());
    file->log("1");
    EXPECT_EQ(switching(1, 0, moving(0)), err.take());
    file->log("2");
    EXPECT_EQ(switching(2, 0, moving(1) + moving(0)), err.take());
    file->log("3");
    EXPECT_EQ(switching(3, 0, moving(2) + moving(1) + moving(0)), err.take());

    EXPECT_EQ("3\n", contentOf(old(0)));
    EXPECT_EQ("2\n", contentOf(old(1)));
    EXPECT_EQ("1\n", contentOf(old(2)));
    EXPECT_EQ("0\n", contentOf(old(3)));
    EXPECT_EQ("", contentOf(path));
}

TEST_F(LogFileRotationTest, OneOldFileIsReplacedEachTime)
{
    open(1, 1);
    file->log("first");
    EXPECT_EQ(switching(0, 1, ""), err.take());
    EXPECT_EQ("first\n", contentOf(old(0)));
    for (const char* const line : {"second", "third"}) {
        file->log(line);
        EXPECT_EQ(switching(1, 1, removing(0)), err.take());
        EXPECT_EQ(String(line) + "\n", contentOf(old(0)));
        EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log", "server.log.0"));
    }
}

TEST_F(LogFileRotationTest, FullFileRotatesAfterTheFirstLine)
{
    create(path, String(200, 'x') + "\n");
    open(100);
    file->log("line");
    EXPECT_EQ(String(200, 'x') + "\nline\n", contentOf(old(0)));
    EXPECT_EQ("", contentOf(path));
}

TEST_F(LogFileRotationTest, AppendedFileCountsFromItsEnd)
{
    create(path, "12345\n");
    open(10);
    file->log("1");
    EXPECT_EQ("12345\n1\n", contentOf(path));
    EXPECT_FALSE(exists(old(0)));
    file->log("2");
    EXPECT_EQ("12345\n1\n2\n", contentOf(old(0)));
}

TEST_F(LogFileRotationTest, LinesFromElsewhereCount)
{
    open(100);
    file->log("mine");
    std::ofstream(path, std::ios_base::app) << String(100, 'x') << '\n';
    file->log("mine");
    EXPECT_EQ("mine\n" + String(100, 'x') + "\nmine\n", contentOf(old(0)));
}

TEST_F(LogFileRotationTest, LimitTakesEffectAtTheNextLine)
{
    open();
    file->log(String(1000, 'x'));
    file->setMaxFileSize(10);
    EXPECT_FALSE(exists(old(0)));
    file->log("y");
    EXPECT_TRUE(exists(old(0)));

    file->setMaxFileSize(0);
    err.take();
    file->log(String(1000, 'x'));
    EXPECT_EQ("", err.take());
    EXPECT_FALSE(exists(old(1)));
}

TEST_F(LogFileRotationTest, SettingAPathDeletesNoExcessFiles)
{
    for (std::size_t i = 0; i < 4; ++i) {
        create(old(i), std::to_string(i));
    }
    file->setMaxFileSize(1);
    file->setMaxNumberOfFiles(2);
    file->setPath(path);
    err.take();
    file->log("line");

    EXPECT_EQ(switching(4, 2, removing(3) + moving(2) + moving(1) + moving(0)), err.take());
    EXPECT_EQ("line\n", contentOf(old(0)));
    EXPECT_EQ("2", contentOf(old(3)));
    EXPECT_FALSE(exists(old(4)));
}

TEST_F(LogFileRotationTest, RaisingTheMaximumAllowsMoreFiles)
{
    open(1, 1);
    file->log("0");
    file->log("1");
    file->setMaxNumberOfFiles(2);
    file->log("2");
    file->log("3");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log", "server.log.0", "server.log.1"));
    EXPECT_EQ("3\n", contentOf(old(0)));
    EXPECT_EQ("2\n", contentOf(old(1)));
}

TEST_F(LogFileRotationTest, LoweredMaximumAppliesToTheNextRotation)
{
    open(1);
    for (const char* const line : {"0", "1", "2", "3"}) {
        file->log(line);
    }
    file->setMaxNumberOfFiles(2);
    err.take();
    file->log("4");
    EXPECT_EQ(switching(2, 2, removing(1) + moving(0)), err.take());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log", "server.log.0", "server.log.1"));
}

TEST_F(LogFileRotationTest, NextObjectContinuesTheNumbers)
{
    open(1, 3);
    file->log("0");
    file->log("1");
    file = LogFileRef(new LogFile);
    err.take();
    file->setPath(path);
    EXPECT_EQ("LogFile:#:countLogFiles(): Found file [" + old(0) + "]\n"
                  + "LogFile:#:countLogFiles(): Found file [" + old(1) + "]\n",
              err.take());
    file->setMaxFileSize(1);
    file->setMaxNumberOfFiles(3);
    file->log("2");
    EXPECT_EQ(switching(2, 3, moving(1) + moving(0)), err.take());
    EXPECT_EQ("2\n", contentOf(old(0)));
    EXPECT_EQ("1\n", contentOf(old(1)));
    EXPECT_EQ("0\n", contentOf(old(2)));
}

TEST_F(LogFileRotationTest, TracesDoNotFollowTheLocaleOfTheProcess)
{
    struct Grouping : std::numpunct<char>
    {
        char do_thousands_sep() const override
        {
            return '\'';
        }
        std::string do_grouping() const override
        {
            return "\1";
        }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
    open(1, 123);
    file->log("line");
    const String traces = err.take();
    std::locale::global(before);
    EXPECT_EQ(switching(0, 123, ""), traces);
}

TEST_F(LogFileRotationTest, LinkIsRenamedAndItsTargetIsUnchanged)
{
    create(folder / "target", "");
    std::filesystem::create_symlink(folder / "target", path);
    open(1);
    file->log("line");
    EXPECT_TRUE(std::filesystem::is_symlink(old(0)));
    EXPECT_EQ("line\n", contentOf(folder / "target"));
    EXPECT_FALSE(std::filesystem::is_symlink(path));
}

// ---- counting and removing rotated files --------------------------------------------------------

TEST_F(LogFileRotationTest, CountsNamesThatEndInADotAndADecimalNumber)
{
    for (const char* const ending : {".0", ".5", ".12", ".007"}) {
        create(path + ending, "");
    }
    for (const char* const ending :
         {".", ".x", ".1x", ".x1", ".-1", ".+1", ".1.gz", ".1.2", ".1 ", "0", ".0x1"}) {
        create(path + ending, "");
    }
    create(folder / "other.log.1", "");
    create(folder / "xserver.log.1", "");
    create(folder / "server_log.1", "");

    file->setPath(path);
    const String traces = err.take();
    for (const char* const ending : {".0", ".5", ".12", ".007"}) {
        const String trace = "LogFile:#:countLogFiles(): Found file [" + path + ending + "]\n";
        EXPECT_THAT(traces, testing::HasSubstr(trace));
    }
    EXPECT_EQ(4, std::count(traces.begin(), traces.end(), '\n')) << traces;
}

TEST_F(LogFileRotationTest, GapsAreNotCounted)
{
    create(old(0), "");
    create(old(5), "");
    open(1);
    file->log("line");
    EXPECT_THAT(err.take(), testing::HasSubstr("LogFile:#:switchFile(): numFiles=2 maxFiles=0\n"));
}

TEST_F(LogFileRotationTest, SettingAPathCountsItsFiles)
{
    create(old(0), "");
    create(old(1), "");
    file->setPath(path);
    file->setPath(folder / "other");
    err.take();
    file->setMaxFileSize(1);
    file->log("line");
    EXPECT_THAT(err.take(), testing::HasSubstr("LogFile:#:switchFile(): numFiles=0 maxFiles=0\n"));
}

TEST_F(LogFileRotationTest, CountingInAMissingDirectoryFindsNothing)
{
    file->setPath(folder / "none/server.log");
    EXPECT_EQ("", err.take());
}

TEST_F(LogFileRotationTest, LoweringTheMaximumDeletesTheOldestImmediately)
{
    for (std::size_t i = 0; i < 5; ++i) {
        create(old(i), std::to_string(i));
    }
    open(0, 5);
    file->setMaxNumberOfFiles(2);
    EXPECT_EQ("LogFile:#:removeFiles(): Removing file [" + old(2) + "] ...\n"
                  + "LogFile:#:removeFiles(): Removing file [" + old(3) + "] ...\n"
                  + "LogFile:#:removeFiles(): Removing file [" + old(4) + "] ...\n",
              err.take());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log.0", "server.log.1"));
    EXPECT_EQ(2u, file->getMaxNumberOfFiles());

    file->setMaxNumberOfFiles(2);
    EXPECT_EQ("", err.take());
}

TEST_F(LogFileRotationTest, FileThatCannotBeRemovedIsSkipped)
{
    create(old(0), "");
    createFullDirectory(old(1));
    create(old(2), "");
    open();
    file->setMaxNumberOfFiles(1);
    EXPECT_EQ("LogFile:#:removeFiles(): Removing file [" + old(1) + "] ...\n"
                  + "LogFile:#:removeFiles(): Could not remove file [" + old(1) + "]\n"
                  + "LogFile:#:removeFiles(): Removing file [" + old(2) + "] ...\n",
              err.take());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log.0", "server.log.1"));
}

TEST_F(LogFileRotationTest, ZeroAndHigherNumbersRemoveNothing)
{
    for (std::size_t i = 0; i < 3; ++i) {
        create(old(i), "");
    }
    open();
    for (const std::size_t number : {0u, 3u, 9u, 0u}) {
        file->setMaxNumberOfFiles(number);
        EXPECT_EQ(number, file->getMaxNumberOfFiles());
    }
    EXPECT_EQ("", err.take());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log.0", "server.log.1", "server.log.2"));
}

TEST_F(LogFileRotationTest, WithoutAPathNothingIsRemoved)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    for (const char* const name : {".0", ".1", ".2"}) {
        create(folder / name, "");
        create(path + name, "");
    }
    file->setPath(path);
    file->close();
    file->setMaxNumberOfFiles(1);
    std::filesystem::current_path(before);
    EXPECT_THAT(namesIn(folder.path()),
                ElementsAre(".0", ".1", ".2", "server.log.0", "server.log.1", "server.log.2"));
}

/** When the size of a file is counted, and when the kernel is asked for it. */
class LogFileSizeTest : public LogFileRotationTest
{
protected:
    /** One thousandth of it is about a line. */
    static constexpr std::size_t LIMIT = 102400;

    /** Lines of 100 bytes in the file. */
    void logLines(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i) {
            file->log(String(99, 'x'));
        }
    }
    void appendFromOutside(std::size_t size) const
    {
        std::ofstream(path, std::ios_base::app) << String(size, 'y');
    }
    bool rotated() const
    {
        return exists(old(0));
    }
};

TEST_F(LogFileSizeTest, FileRotatesAfterTheLineThatReachesTheLimit)
{
    open(LIMIT);
    logLines(1023);
    EXPECT_FALSE(rotated());
    logLines(1);
    EXPECT_TRUE(rotated());
    EXPECT_EQ(102400, std::filesystem::file_size(old(0)));
    EXPECT_EQ(0, std::filesystem::file_size(path));

    logLines(1023);
    EXPECT_FALSE(exists(old(1)));
    logLines(1);
    EXPECT_TRUE(exists(old(1)));
    EXPECT_EQ(102400, std::filesystem::file_size(old(0)));
}

TEST_F(LogFileSizeTest, ExistingContentCounts)
{
    create(path, String(101999, 'y') + '\n');
    open(LIMIT);
    logLines(3);
    EXPECT_FALSE(rotated());
    logLines(1);
    EXPECT_TRUE(rotated());
}

TEST_F(LogFileSizeTest, FileAboveTheLimitRotatesAfterItsFirstLine)
{
    create(path, String(199999, 'y') + '\n');
    open(LIMIT);
    logLines(1);
    EXPECT_EQ(200100, std::filesystem::file_size(old(0)));
}

TEST_F(LogFileSizeTest, ForeignAppendIsNoticedWithinAThousandthOfTheLimit)
{
    open(LIMIT);
    logLines(1);
    appendFromOutside(200000);
    logLines(2);
    EXPECT_EQ(200300, std::filesystem::file_size(old(0)));
    EXPECT_EQ(0, std::filesystem::file_size(path));
}

TEST_F(LogFileSizeTest, AfterAForeignAppendTheSizeIsCheckedAtEachLine)
{
    open(LIMIT);
    logLines(1);
    appendFromOutside(1000);
    logLines(2);
    EXPECT_FALSE(rotated());
    appendFromOutside(200000);
    logLines(1);
    EXPECT_EQ(201400, std::filesystem::file_size(old(0)));
    // Also in the next file.
    appendFromOutside(200000);
    logLines(1);
    EXPECT_EQ(200100, std::filesystem::file_size(old(0)));
}

TEST_F(LogFileSizeTest, TextInsertedIntoTheStreamCountsAtTheNextLine)
{
    open(LIMIT);
    logLines(1);
    *file->getStream() << String(200000, 'z');
    logLines(1);
    EXPECT_EQ(200200, std::filesystem::file_size(old(0)));
}

TEST_F(LogFileSizeTest, SmallLimitsAreCheckedAtEachLine)
{
    open(1000);
    logLines(1);
    appendFromOutside(2000);
    logLines(1);
    EXPECT_EQ(2200, std::filesystem::file_size(old(0)));
}

TEST_F(LogFileSizeTest, LoweredLimitAppliesToTheNextLine)
{
    open(LIMIT);
    logLines(10);
    file->setMaxFileSize(1100);
    logLines(1);
    EXPECT_EQ(1100, std::filesystem::file_size(old(0)));
}

TEST_F(LogFileSizeTest, FileTruncatedFromOutsideIsNotRotatedEarly)
{
    open(LIMIT);
    logLines(1022);
    std::filesystem::resize_file(path, 0);
    logLines(2);
    EXPECT_FALSE(rotated());
    EXPECT_EQ(200, std::filesystem::file_size(path));
}

}
