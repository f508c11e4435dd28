#include "LogFileFixture.hpp"
#include "WriteSpy.hpp"

#include <gmock/gmock.h>

namespace {

using namespace logfiletest;
using testing::ElementsAre;

/** What becomes of a line on an output that is open. */
class LogFileLineTest : public LogFileFixture
{
protected:
    std::ostringstream foreign;
};

TEST_F(LogFileLineTest, TrailingWhiteSpaceIsRemoved)
{
    file->setStream(foreign);
    file->log("  text \t\n\v\f\r ");
    file->log("a\nb\n\n");
    file->log("");
    file->log(" \n ");
    file->log(String("zero\0byte\0", 10));
    file->log("caf\xE9\x85\xA0");
    EXPECT_EQ(String("  text\na\nb\n\n\nzero\0byte\0\ncaf\xE9\x85\xA0\n", 31), foreign.str());
}

TEST_F(LogFileLineTest, EachLineIsFlushed)
{
    file->setPath(path);
    String expected;
    for (int i = 0; i < 20; ++i) {
        file->log("line " + std::to_string(i));
        expected += "line " + std::to_string(i) + '\n';
        EXPECT_EQ(expected, contentOf(path));
    }
}

TEST_F(LogFileLineTest, LineIsOneWriteWhateverItsLength)
{
    file->setPath(path);
    file->getStream();
    WriteSpy spy(path);
    for (const std::size_t length :
         {0u, 1u, 60u, 1022u, 1023u, 1024u, 4095u, 8190u, 8191u, 8192u, 8193u, 65536u, 204800u, 3000000u}) {
        file->log(String(length, 'x'));
        EXPECT_THAT(spy.takeCalls(), ElementsAre(length + 1));
    }
}

TEST_F(LogFileLineTest, LineIsOneWriteAlsoAfterARotationAndAppending)
{
    create(path, "before\n");
    open(100000);
    file->log(String(99999, 'x'));
    ASSERT_EQ("", contentOf(path));
    WriteSpy spy(path);
    file->log(String(20000, 'y'));
    EXPECT_THAT(spy.takeCalls(), ElementsAre(20001u));
    file->log("short");
    EXPECT_THAT(spy.takeCalls(), ElementsAre(6u));
}

TEST_F(LogFileLineTest, ClosingAddsNothing)
{
    file->setPath(path);
    file->log("line");
    WriteSpy spy(path);
    file->close();
    EXPECT_THAT(spy.takeCalls(), ElementsAre());
}

TEST_F(LogFileLineTest, ForeignStreamInABadStateLeavesLinesToStandardError)
{
    file->setStream(foreign);
    foreign.setstate(std::ios_base::badbit);
    EXPECT_FALSE(file->is_open());
    EXPECT_TRUE(file->is_valid());

    for (const char* const line : {"one", "two"}) {
        file->log(String(line) + "  ");
        EXPECT_EQ("ERROR: Unable to write to log output stream.\n" + String(line) + "\n", err.take());
    }
    EXPECT_EQ(&foreign, file->getStream());
    EXPECT_EQ("", foreign.str());

    foreign.clear();
    file->log("three");
    EXPECT_EQ("", err.take());
    EXPECT_EQ("three\n", foreign.str());
}

TEST_F(LogFileLineTest, StreamAtItsEndDoesNotSwallowLines)
{
    std::stringstream both;
    String word;
    both >> word;
    both.clear(std::ios_base::eofbit);
    file->setStream(both);
    file->log("line");
    EXPECT_EQ("ERROR: Unable to write to log output stream.\nline\n", err.take());
}

/** Takes nothing. */
class Refusing : public std::streambuf
{};

TEST_F(LogFileLineTest, LineThatItsOwnWriteRejectsIsWrittenToStandardError)
{
    Refusing buffer;
    std::ostream refusing(&buffer);
    file->setStream(refusing);
    EXPECT_TRUE(file->is_open());
    file->log("first");
    EXPECT_EQ("ERROR: Unable to write to log output stream.\nfirst\n", err.take());
    EXPECT_FALSE(file->is_open());
    EXPECT_TRUE(file->is_valid());
    file->log("second");
    EXPECT_EQ("ERROR: Unable to write to log output stream.\nsecond\n", err.take());
}

TEST_F(LogFileLineTest, LineIsRescuedIfTheStreamThrows)
{
    Refusing buffer;
    std::ostream refusing(&buffer);
    refusing.exceptions(std::ios_base::badbit | std::ios_base::failbit);
    file->setStream(refusing);
    for (const char* const line : {"one", "two"}) {
        EXPECT_NO_THROW(file->log(line));
        EXPECT_EQ("ERROR: Unable to write to log output stream.\n" + String(line) + "\n", err.take());
    }
}

TEST_F(LogFileLineTest, StateOfStandardErrorIsNotChanged)
{
    std::cerr.setstate(std::ios_base::badbit);
    file->setMaxFileSize(1);
    EXPECT_NO_THROW(file->log("lost"));
    EXPECT_FALSE(file->is_open());
    EXPECT_TRUE(file->is_valid());
    std::cerr.clear();
    EXPECT_EQ("", err.take());
    file->log("back");
    EXPECT_EQ("back\n", err.take());
}

TEST_F(LogFileLineTest, ForeignStreamIsNeverRotated)
{
    file->setStream(foreign);
    file->setMaxFileSize(1);
    file->setMaxNumberOfFiles(1);
    file->log("one");
    file->log("two");
    EXPECT_EQ("one\ntwo\n", foreign.str());
    EXPECT_EQ("", err.take());

    std::ofstream theirs(path);
    file->setStream(theirs);
    file->log("one");
    file->log("two");
    EXPECT_EQ("one\ntwo\n", contentOf(path));
    EXPECT_EQ("", err.take());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log"));
}

}
