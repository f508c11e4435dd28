// What the log writes to standard error and standard output, whatever has happened to the streams.

#include "LogFileFixture.hpp"
#include "Loggers.hpp"
#include "Threads.hpp"

#include "support/ChildProcess.hpp"
#include <support/StandardLibrary.hpp>

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;
using support::ChildProcess;
using testing::HasSubstr;

constexpr int PIPE_SIZE = 4096;

/** Replaces standard error by a pipe that does not block its writers. */
class ErrorPipe
{
public:
    ErrorPipe()
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0 || ::fcntl(ends[1], F_SETPIPE_SZ, PIPE_SIZE) != PIPE_SIZE
            || ::fcntl(ends[1], F_SETFL, O_NONBLOCK) != 0 || ::dup2(ends[1], STDERR_FILENO) == -1) {
            std::abort();
        }
        ::close(ends[1]);
        reader = ends[0];
    }

    void fill() const
    {
        const String bytes(PIPE_SIZE, '.');
        EXPECT_EQ(PIPE_SIZE, ::write(STDERR_FILENO, bytes.data(), bytes.size()));
        EXPECT_EQ(-1, ::write(STDERR_FILENO, "", 1));
    }

    /** Waits for bytes, and returns up to `most` of them. */
    String read(std::size_t most = PIPE_SIZE) const
    {
        String bytes(most, '\0');
        const ssize_t count = ::read(reader, bytes.data(), bytes.size());
        EXPECT_LT(0, count);
        return bytes.substr(0, static_cast<std::size_t>(count));
    }

private:
    int reader = -1;
};

/** Each test redirects the descriptors of a process of its own. */
class StandardErrorTest : public testing::Test
{
protected:
    /** Opens a file instead of a standard descriptor. */
    static void redirect(int descriptor, const String& name)
    {
        const int opened = ::open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        ASSERT_EQ(descriptor, ::dup2(opened, descriptor));
        ::close(opened);
    }

    static void expectLogged(LogFile& file, const String& line, const String& name)
    {
        const String before = contentOf(name);
        EXPECT_NO_THROW(file.log(line));
        EXPECT_EQ(before + line + "\n", contentOf(name));
    }

    const Folder folder;
    const String err = folder / "err";
    const String out = folder / "out";
};

TEST_F(StandardErrorTest, StateOfTheStreamNeitherStopsALineNorChanges)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "libc++ does not accept a null string";
    }
    EXPECT_EQ(0, inChildProcess([this] {
                  redirect(STDERR_FILENO, err);
                  const char* const nothing = nullptr;
                  std::cerr << nothing;
                  ASSERT_TRUE(std::cerr.bad());
                  LogFileRef file(new LogFile);
                  expectLogged(*file, "one", err);
                  expectLogged(*file, "two", err);
                  EXPECT_TRUE(std::cerr.bad());
                  std::clog.setstate(std::ios_base::failbit);
                  file->setStream(std::clog);
                  expectLogged(*file, "three", err);
                  EXPECT_EQ(std::ios_base::failbit, std::clog.rdstate());
              }));
}

TEST_F(StandardErrorTest, StateOfTheStreamDoesNotStopTheDefaultLogger)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  redirect(STDERR_FILENO, err);
                  std::cerr.setstate(std::ios_base::badbit);
                  com_kor_dal_nim_log_control.setPath(folder / "server.log");
                  com_kor_dal_nim_log_control.setStream("STDERR");
                  EXPECT_NO_THROW(NIM_LOG(Severity_ERROR) << "text");
                  EXPECT_THAT(contentOf(err), HasSubstr("Log Configuration:\n\tOutputPath:   \"STDERR\"\n"));
                  EXPECT_THAT(contentOf(err), testing::EndsWith(" : text\n"));
              }));
}

TEST_F(StandardErrorTest, StateOfTheStreamDoesNotStopRejectedLinesAndTraces)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  redirect(STDERR_FILENO, err);
                  std::cerr.setstate(std::ios_base::badbit);
                  createFullFile(folder / "full");
                  LogFileRef file(new LogFile);
                  file->setPath(folder / "full");
                  file->log("rejected");
                  EXPECT_EQ(WRITE_ERROR_MESSAGE + "rejected\n", contentOf(err));
                  create(folder / "server.log.0", "");
                  file->setPath(folder / "server.log");
                  EXPECT_THAT(contentOf(err), testing::EndsWith("server.log.0]\n"));
              }));
}

TEST_F(StandardErrorTest, StateOfTheStreamDoesNotStopAPlainLog)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  redirect(STDERR_FILENO, err);
                  std::cerr.setstate(std::ios_base::badbit);
                  logtest::PlainLog logger;
                  logger.stream = &std::cerr;
                  logger.log("text");
                  EXPECT_EQ("text\n", contentOf(err));
                  logger.stream = nullptr;
                  logger.log("text");
                  EXPECT_EQ("text\n" + WRITE_ERROR_MESSAGE + "text\n", contentOf(err));
              }));
}

TEST_F(StandardErrorTest, InsertionsBeforeALineComeBeforeIt)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  redirect(STDOUT_FILENO, out);
                  redirect(STDERR_FILENO, out);
                  std::setvbuf(stdout, nullptr, _IOFBF, 4096);
                  LogFileRef file(new LogFile);
                  std::cout << "one ";
                  file->setStream(std::cout);
                  file->log("two");
                  // Standard error is tied to it.
                  std::cout << "three ";
                  file->setStream(std::cerr);
                  file->log("four");
                  std::cerr << "five\n";
                  std::printf("six\n");
                  std::fflush(stdout);
                  EXPECT_EQ("one two\nthree four\nfive\nsix\n", contentOf(out));
              }));
}

TEST_F(StandardErrorTest, BuffersOfSyncWithStdioAreNotReplacedOnes)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  redirect(STDOUT_FILENO, out);
                  redirect(STDERR_FILENO, err);
                  std::ios_base::sync_with_stdio(false);
                  LogFileRef file(new LogFile);
                  file->setStream(std::cout);
                  std::cout << "one ";
                  file->log("two");
                  EXPECT_EQ("one two\n", contentOf(out));
                  std::cout.setstate(std::ios_base::badbit);
                  expectLogged(*file, "three", out);
                  std::cerr.setstate(std::ios_base::badbit);
                  file->setStream(std::cerr);
                  expectLogged(*file, "four", err);
              }));
}

TEST_F(StandardErrorTest, BufferThatReplacesTheStandardOneReceivesTheLines)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  redirect(STDOUT_FILENO, out);
                  redirect(STDERR_FILENO, err);
                  LogFileRef file(new LogFile);
                  {
                      logtest::Captured captured(std::cerr);
                      file->log("captured");
                      EXPECT_EQ("captured\n", captured.taken());
                  }
                  std::streambuf* const own = std::cerr.rdbuf(std::cout.rdbuf());
                  file->log("to the other");
                  std::cout.flush();
                  std::cerr.rdbuf(own);
                  expectLogged(*file, "to its own", err);
                  EXPECT_EQ("to its own\n", contentOf(err));
                  EXPECT_EQ("to the other\n", contentOf(out));
              }));
}

TEST_F(StandardErrorTest, LaterRedirectionIsHonoured)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  redirect(STDERR_FILENO, err);
                  LogFileRef file(new LogFile);
                  expectLogged(*file, "one", err);
                  redirect(STDERR_FILENO, out);
                  expectLogged(*file, "two", out);
                  ASSERT_NE(nullptr, std::freopen((folder / "third").c_str(), "w", stderr));
                  expectLogged(*file, "three", folder / "third");
              }));
}

TEST_F(StandardErrorTest, WriteWaitsForAFullPipe)
{
    EXPECT_EQ(0, inChildProcess([] {
                  const ErrorPipe pipe;
                  pipe.fill();
                  LogFileRef file(new LogFile);
                  logtest::LoggingThread logging([&file] { file->log("line"); });
                  logging.awaitBlocked();
                  EXPECT_EQ(String(PIPE_SIZE, '.'), pipe.read());
                  logging.join();
                  EXPECT_EQ("line\n", pipe.read());
              }));
}

TEST_F(StandardErrorTest, LongLineIsWrittenWholeToAPipeThatFills)
{
    EXPECT_EQ(0, inChildProcess([] {
                  const ErrorPipe pipe;
                  LogFileRef file(new LogFile);
                  const String line(100000, 'x');
                  logtest::LoggingThread logging([&] { file->log(line); });
                  logging.awaitBlocked();
                  String read;
                  while (read.empty() || read.back() != '\n') {
                      read += pipe.read();
                  }
                  logging.join();
                  EXPECT_EQ(line + "\n", read);
              }));
}

TEST_F(StandardErrorTest, CancelledThreadWritesItsLineWhollyAfterAFileThatCannotBeOpened)
{
    EXPECT_EQ(0, inChildProcess([] {
                  const ErrorPipe pipe;
                  // Ends this process if the rest of the line never comes.
                  ::alarm(30);
                  Write logger;
                  logger.setOutputMask(0);
                  logger.setFallback(true);
                  logger.setPath("/nowhere/at/all.log");
                  const String text(20000, 'x');
                  const String expected = WRITE_ERROR_MESSAGE + " : " + text + "\n";
                  Module module("cancelled", logger);
                  logtest::LoggingThread logging([&] {
                      NIM_LOG_TO(module, Severity_ERROR) << text;
                      ::pthread_testcancel();
                      ADD_FAILURE() << "was not cancelled";
                  });
                  logging.awaitBlocked();
                  EXPECT_EQ(0, ::pthread_cancel(logging.handle()));
                  String all;
                  while (all.size() < expected.size()) {
                      all += pipe.read();
                  }
                  logging.join();
                  EXPECT_EQ(expected, all);
              }));
}

TEST_F(StandardErrorTest, WriteWaitsOnceForAPipeThatStaysFullAndAtMostASecond)
{
    EXPECT_EQ(0, inChildProcess([] {
                  const ErrorPipe pipe;
                  pipe.fill();
                  LogFileRef file(new LogFile);
                  const auto begin = std::chrono::steady_clock::now();
                  file->log("lost");
                  const auto first = std::chrono::steady_clock::now();
                  EXPECT_LE(std::chrono::milliseconds(1000), first - begin);
                  for (int i = 0; i < 1000; ++i) {
                      file->log("lost, too");
                  }
                  EXPECT_GT(std::chrono::seconds(500), std::chrono::steady_clock::now() - first);
                  EXPECT_EQ(String(PIPE_SIZE, '.'), pipe.read());
                  file->log("written");
                  EXPECT_EQ("written\n", pipe.read());
              }));
}

TEST_F(StandardErrorTest, LineAfterATruncatedOneBeginsOnANewLine)
{
    EXPECT_EQ(0, inChildProcess([] {
                  const ErrorPipe pipe;
                  LogFileRef file(new LogFile);
                  file->setStream(std::clog);
                  file->log(String(PIPE_SIZE + 1, 'x'));
                  const String cut = pipe.read();
                  EXPECT_THAT(cut, testing::StartsWith("xxx"));
                  file->setStream(std::cerr);
                  file->log("next");
                  EXPECT_EQ("\nnext\n", pipe.read());
              }));
}

// ---- descriptors that were closed when the library was loaded ------------------------------

class ClosedDescriptorsTest : public StandardErrorTest
{
protected:
    /** Runs the probe with some of its standard descriptors closed. */
    void probe(const String& closed, const String& arguments)
    {
        ChildProcess child({"/bin/sh", "-c", "exec '" DALNIM_LOG_PROBE "' " + arguments + ' ' + closed},
                           folder.path());
        EXPECT_EQ(0, child.wait());
    }
};

TEST_F(ClosedDescriptorsTest, FileWithTheDescriptorOfStandardErrorNeverReceivesTheLog)
{
    probe("</dev/null 2>&-", "closed-stderr '" + err + "'");
    EXPECT_EQ("data\n", contentOf(err));
}

TEST_F(ClosedDescriptorsTest, StandardErrorIsUsedAgainAfterASettingSelectsIt)
{
    probe("</dev/null 2>&-", "reopened-stderr '" + err + "'");
    EXPECT_THAT(contentOf(err), testing::EndsWith(" : named\n"));
    EXPECT_THAT(contentOf(err), testing::Not(HasSubstr("before")));
}

TEST_F(ClosedDescriptorsTest, LogFileIsOpenedAboveTheStandardDescriptors)
{
    probe("<&- >&- 2>&-", "low-descriptors '" + (folder / "server.log") + "'");
    EXPECT_THAT(contentOf(folder / "server.log"), testing::EndsWith(" : none\n"));
    EXPECT_THAT(contentOf(folder / "server.log.0"), testing::EndsWith(" : none\n"));
}

/** Configurations of a process whose standard output and error are closed. */
class ClosedDescriptorsConfigurationTest : public ClosedDescriptorsTest
{
protected:
    String configure(const String& settings)
    {
        const String outcome = folder / "outcome";
        String text;
        for (const String& setting : {settings, String("severity.id = INFO")}) {
            text += "com.kor.dal.nim.log.Control." + setting + '\n';
        }
        probe("</dev/null >&- 2>&-", "configure '" + outcome + "' '" + text + "'");
        return contentOf(outcome);
    }
};

TEST_F(ClosedDescriptorsConfigurationTest, FileIsConfiguredWithoutAFailure)
{
    const String path = folder / "server.log";
    EXPECT_EQ("configured", configure("file = " + path));
    EXPECT_THAT(contentOf(path), testing::EndsWith("\told: NOTICE\n\tnew: INFO\n"));
}

TEST_F(ClosedDescriptorsConfigurationTest, FallbackIsConfiguredWithoutAFailure)
{
    EXPECT_EQ("configured", configure("fallback.enable = true"));
}

TEST_F(ClosedDescriptorsConfigurationTest, StreamThatIsClosedIsAFailure)
{
    EXPECT_EQ("9: Unable to write to log output stream \"STDOUT\": Bad file descriptor",
              configure("stream = STDOUT"));
}

/** The report of a setting fails as each statement does, after the setting has changed. */
TEST_F(ClosedDescriptorsConfigurationTest, SettingsWithoutAnOutputFailLikeStatements)
{
    EXPECT_EQ("9: Unable to write to log output stream \"STDERR\": Bad file descriptor",
              configure("localtime = false"));
}

}
