#include "LogFileFixture.hpp"
#include "WriteSpy.hpp"

#include <dalnim/sys/SysError.hpp>

#include <support/Valgrind.hpp>

#include <gmock/gmock.h>

#include <csignal>
#include <cstring>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::sys::system_error;
using testing::ElementsAre;
using testing::HasSubstr;

/** Returns the message of a failed file check as the runtime layer formats it, in 78 columns. */
String refusal(const String& numberAndText, const String& path)
{
    const std::size_t length = numberAndText.size() - numberAndText.find(' ') - 1 + 2 + path.size();
    return numberAndText + (length > 78 ? ":\n" : ": ") + path;
}

/** Files that cannot be opened, and lines that cannot be written. */
class LogFileFaultTest : public LogFileFixture
{
protected:
    /** What a line ends with, as "13 Permission denied". */
    String failureOf(const String& line)
    {
        try {
            file->log(line);
        } catch (const system_error& error) {
            return std::to_string(error.error()) + ' ' + error.what();
        }
        return "written";
    }

    /** Expects that the path is cleared, and that the next line is an ordinary one on standard error. */
    void expectForgotten()
    {
        EXPECT_EQ("", file->getPath());
        EXPECT_FALSE(file->is_open());
        EXPECT_FALSE(file->is_valid());
        EXPECT_FALSE(file->is_reserved());
        EXPECT_EQ("<not set>", displayName());
        EXPECT_EQ("", err.take());
        EXPECT_EQ("written", failureOf("next"));
        EXPECT_EQ("next\n", err.take());
        expectStandardError();
    }

    /** The path is still there, and each line fails in the same way. */
    void expectKept(const String& failure)
    {
        const String name = file->getPath();
        EXPECT_NE("", name);
        EXPECT_EQ(name, displayName());
        EXPECT_FALSE(file->is_open());
        EXPECT_FALSE(file->is_valid());
        EXPECT_FALSE(file->is_reserved());
        EXPECT_EQ(failure, failureOf("next"));
        EXPECT_EQ(name, file->getPath());
        EXPECT_EQ("", err.take());
    }
};

// ---- opening --------------------------------------------------------------------------------

TEST_F(LogFileFaultTest, DirectoryThatMayNotBeWritten)
{
    std::filesystem::create_directory(folder / "locked");
    ASSERT_EQ(0, ::chmod((folder / "locked").c_str(), 0555));
    file->setPath(folder / "locked/server.log");
    {
        const AsNobody nobody;
        EXPECT_EQ("13 Permission denied", failureOf("line"));
    }
    expectForgotten();
    EXPECT_THAT(namesIn(folder / "locked"), ElementsAre());
}

TEST_F(LogFileFaultTest, DirectoryThatMayNotBeEntered)
{
    std::filesystem::create_directory(folder / "shut");
    ASSERT_EQ(0, ::chmod((folder / "shut").c_str(), 0));
    file->setPath(folder / "shut/server.log");
    {
        const AsNobody nobody;
        EXPECT_EQ("13 Permission denied", failureOf("line"));
    }
    expectForgotten();
}

TEST_F(LogFileFaultTest, FileThatMayNotBeWritten)
{
    create(path, "theirs\n");
    ASSERT_EQ(0, ::chmod(path.c_str(), 0444));
    file->setPath(path);
    {
        const AsNobody nobody;
        EXPECT_EQ("13 Permission denied", failureOf("line"));
    }
    expectForgotten();
    EXPECT_EQ("theirs\n", contentOf(path));
}

TEST_F(LogFileFaultTest, StreamOfAFileThatMayNotBeWritten)
{
    ASSERT_EQ(0, ::chmod(folder.path().c_str(), 0555));
    file->setPath(path);
    {
        const AsNobody nobody;
        try {
            file->getStream();
            FAIL() << "opened";
        } catch (const system_error& error) {
            EXPECT_EQ(13, error.error());
        }
    }
    EXPECT_EQ("", file->getPath());
    EXPECT_EQ(&std::cerr, file->getStream());
}

TEST_F(LogFileFaultTest, DirectoryThatMayNotBeCreated)
{
    ASSERT_EQ(0, ::chmod(folder.path().c_str(), 0555));
    file->setPath(folder / "new/server.log");
    String failure;
    {
        const AsNobody nobody;
        failure = failureOf("line");
    }
    EXPECT_EQ(refusal("2 No such file or directory", folder / "new/server.log"), failure);
    EXPECT_EQ(folder / "new/server.log", file->getPath());
    EXPECT_FALSE(exists(folder / "new"));

    file->log("later");
    EXPECT_EQ("later\n", contentOf(folder / "new/server.log"));
}

TEST_F(LogFileFaultTest, MissingParentOfTheDirectory)
{
    const String name = folder / "none/none/server.log";
    file->setPath(name);
    const String failure = refusal("2 No such file or directory", name);
    EXPECT_EQ(failure, failureOf("line"));
    expectKept(failure);
    EXPECT_FALSE(exists(folder / "none"));

    std::filesystem::create_directory(folder / "none");
    file->log("later");
    EXPECT_EQ("later\n", contentOf(name));
}

TEST_F(LogFileFaultTest, DirectoryInsteadOfTheFile)
{
    std::filesystem::create_directory(path);
    file->setPath(path);
    const String failure = refusal("21 Is a directory", path);
    EXPECT_EQ(failure, failureOf("line"));
    expectKept(failure);

    std::filesystem::remove(path);
    file->log("later");
    EXPECT_EQ("later\n", contentOf(path));
}

TEST_F(LogFileFaultTest, FileInsteadOfTheDirectory)
{
    create(folder / "file", "");
    file->setPath(folder / "file/server.log");
    const String failure = refusal("20 Not a directory", folder / "file/server.log");
    EXPECT_EQ(failure, failureOf("line"));
    expectKept(failure);
    EXPECT_EQ("", contentOf(folder / "file"));
}

TEST_F(LogFileFaultTest, NameThatIsTooLong)
{
    const String name = folder / String(256, 'n');
    file->setPath(name);
    const String failure = refusal("36 File name too long", name);
    EXPECT_EQ(failure, failureOf("line"));
    expectKept(failure);
}

TEST_F(LogFileFaultTest, ZeroByteInTheName)
{
    create(path, "another's\n");
    file->setPath(path + String("\0.log", 5));
    const String failure = refusal("22 Invalid argument", path);
    EXPECT_EQ(failure, failureOf("line"));
    expectKept(failure);
    EXPECT_EQ("another's\n", contentOf(path));
}

TEST_F(LogFileFaultTest, CircularLinks)
{
    std::filesystem::create_symlink(path, folder / "b");
    std::filesystem::create_symlink(folder / "b", path);
    file->setPath(path);
    const String failure = refusal("40 Too many levels of symbolic links", path);
    EXPECT_EQ(failure, failureOf("line"));
    expectKept(failure);
}

TEST_F(LogFileFaultTest, WritableFileThatCannotBeOpened)
{
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_NE(-1, listener);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, path.c_str());
    ASSERT_EQ(0, ::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    file->setPath(path);
    EXPECT_EQ("6 No such device or address", failureOf("line"));
    ::close(listener);
    expectForgotten();
}

TEST_F(LogFileFaultTest, NoMoreDescriptors)
{
#ifdef DALNIM_SANITIZED
    GTEST_SKIP() << "the undefined behaviour sanitizer looks at memory through a pipe of its own";
#endif
    if (support::isUnderValgrind()) {
        GTEST_SKIP() << "valgrind has descriptors of its own";
    }
    file->setPath(path);
    String failure;
    {
        const Limit descriptors(RLIMIT_NOFILE, 0);
        failure = failureOf("line");
    }
    EXPECT_EQ("24 Too many open files", failure);
    expectForgotten();
}

TEST_F(LogFileFaultTest, DirectoryOfTheKernel)
{
    file->setPath("/proc/dalnim-no-such-file");
    EXPECT_NE("written", failureOf("line"));
    EXPECT_EQ("", err.take());
    EXPECT_FALSE(file->is_valid());
}

TEST_F(LogFileFaultTest, FailureToOpenLeavesTheLockFree)
{
    file->setPath(folder / "none/none/server.log");
    EXPECT_NE("written", failureOf("line"));
    std::thread([this] { file->setPath(path); }).join();
    std::thread([this] { file->log("line"); }).join();
    EXPECT_EQ("line\n", contentOf(path));
}

// ---- writing --------------------------------------------------------------------------------

TEST_F(LogFileFaultTest, FullDevice)
{
    createFullFile(path);
    file->setPath(path);
    std::ostream* const stream = file->getStream();
    EXPECT_TRUE(file->is_open());
    for (const String& line : {String("one"), String("two"), String(20000, 'x'), String()}) {
        file->log(line + "\n\n");
        EXPECT_EQ(WRITE_ERROR_MESSAGE + line + "\n", err.take());
        EXPECT_EQ(path, file->getPath());
        EXPECT_EQ(stream, file->getStream());
        EXPECT_FALSE(file->is_open());
        EXPECT_TRUE(file->is_valid());
        EXPECT_FALSE(file->is_reserved());
    }
}

TEST_F(LogFileFaultTest, FailedFileRecoversByTheRotationOfStandardErrorsPosition)
{
    open(100);
    file->getStream();
    {
        WriteSpy full(path);
        full.setRoom(0);
        file->log("one");
        EXPECT_FALSE(exists(old(0)));
        file->log(String(60, 'x'));
    }
    const String rotation = "LogFile:#:switchFile(): Switching log file [" + path + "] ...\n"
                            + "LogFile:#:switchFile(): numFiles=0 maxFiles=0\n"
                            + "LogFile:#:switchFile(): Moving [" + path + "] to [" + old(0) + "]\n";
    EXPECT_EQ(WRITE_ERROR_MESSAGE + "one\n" + WRITE_ERROR_MESSAGE + String(60, 'x') + "\n" + rotation,
              err.take());
    EXPECT_EQ("", contentOf(old(0)));
    EXPECT_TRUE(file->is_open());

    file->log("recovered");
    EXPECT_EQ("", err.take());
    EXPECT_EQ("recovered\n", contentOf(path));
}

/** Has no position, like a terminal or a pipe. */
class Unseekable : public std::streambuf
{
public:
    String text;

private:
    int_type overflow(int_type byte) override
    {
        text += traits_type::to_char_type(byte);
        return byte;
    }
};

TEST_F(LogFileFaultTest, FailedFileRecoversImmediatelyIfStandardErrorHasNoPosition)
{
    open(1000000);
    file->getStream();
    Unseekable terminal;
    {
        const support::StandardErrorTo captured(&terminal);
        WriteSpy full(path);
        full.setRoom(0);
        file->log("one");
        file->log("two");
    }
    EXPECT_THAT(terminal.text, testing::StartsWith(WRITE_ERROR_MESSAGE + "one\nLogFile:"));
    EXPECT_EQ("", contentOf(old(0)));
    EXPECT_EQ("two\n", contentOf(path));
}

TEST_F(LogFileFaultTest, EachLineTriesAFileThatWasFullAgain)
{
    file->setPath(path);
    file->log("one");
    WriteSpy spy(path);
    spy.setRoom(0);
    for (const String& line : {String("two"), String("three")}) {
        file->log(line);
        EXPECT_EQ(WRITE_ERROR_MESSAGE + line + "\n", err.take());
        EXPECT_FALSE(file->is_open());
    }
    EXPECT_THAT(spy.takeCalls(), ElementsAre(4u, 6u));
    spy.setRoom(1000);
    file->log("four");
    EXPECT_EQ("", err.take());
    EXPECT_TRUE(file->is_open());
    EXPECT_EQ("one\nfour\n", contentOf(path));
}

TEST_F(LogFileFaultTest, LineAfterATruncatedOneBeginsOnANewLine)
{
    file->setPath(path);
    file->log("one");
    WriteSpy spy(path);
    spy.setRoom(5);
    file->log("two is cut");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + "two is cut\n", err.take());
    // Not even the newline is accepted, or nothing but the newline, or a part of the line behind it.
    file->log("three");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + "three\n", err.take());
    spy.setRoom(1);
    file->log("four");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + "four\n", err.take());
    EXPECT_EQ("one\ntwo i\n", contentOf(path));
    spy.setRoom(2);
    file->log("five");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + "five\n", err.take());
    spy.setRoom(3);
    file->log("six");
    EXPECT_EQ(WRITE_ERROR_MESSAGE + "six\n", err.take());
    spy.setRoom(1000);
    spy.takeCalls();
    file->log("seven");
    EXPECT_EQ("", err.take());
    EXPECT_THAT(spy.takeCalls(), ElementsAre(7u)) << "newline and line are one call";
    spy.setPiece(3);
    file->log("eight");
    EXPECT_EQ("one\ntwo i\nfi\nsi\nseven\neight\n", contentOf(path));
    file->close();
    EXPECT_EQ("one\ntwo i\nfi\nsi\nseven\neight\n", contentOf(path)) << "a rejected line came back";
}

TEST_F(LogFileFaultTest, PartialWriteIsContinued)
{
    file->setPath(path);
    file->getStream();
    WriteSpy spy(path);
    spy.setPiece(30000);
    file->log(String(100000, 'x'));
    EXPECT_THAT(spy.takeCalls(), ElementsAre(100001u, 70001u, 40001u, 10001u));
    EXPECT_EQ("", err.take());
    EXPECT_EQ(String(100000, 'x') + "\n", contentOf(path));
}

/** Lines of 100 bytes, "000xxx...". */
String numbered(int number)
{
    return std::to_string(1000 + number).substr(1) + String(96, 'x');
}

TEST_F(LogFileFaultTest, SizeLimitOfTheProcess)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  file->setPath(path);
                  String expected;
                  {
                      const Limit bytes(RLIMIT_FSIZE, 950);
                      for (int i = 0; i < 20; ++i) {
                          file->log(numbered(i));
                          expected += i < 9 ? String() : WRITE_ERROR_MESSAGE + numbered(i) + "\n";
                      }
                  }
                  EXPECT_EQ(expected, err.take());
                  EXPECT_EQ(path, file->getPath());
                  const String content = contentOf(path);
                  EXPECT_EQ(950u, content.size());
                  for (int i = 0; i < 9; ++i) {
                      EXPECT_EQ(numbered(i) + "\n", content.substr(static_cast<std::size_t>(i) * 100, 100));
                  }
              }));
}

TEST_F(LogFileFaultTest, SizeLimitOfTheProcessWithRotationLosesNothing)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  open(2000);
                  {
                      const Limit bytes(RLIMIT_FSIZE, 950);
                      for (int i = 0; i < 100; ++i) {
                          file->log(numbered(i));
                      }
                  }
                  String all = err.take();
                  const std::vector<String> names = namesIn(folder.path());
                  EXPECT_GT(names.size(), 2u);
                  for (const String& name : names) {
                      all += contentOf(folder / name) + "\n";
                  }
                  for (int i = 0; i < 100; ++i) {
                      EXPECT_THAT(all, HasSubstr(numbered(i) + "\n"));
                      EXPECT_EQ(all.find(numbered(i)), all.rfind(numbered(i))) << "twice";
                  }
              }));
}

}
