// Where a log file begins: fragments of lines, files that are no regular ones, and the stream that is
// handed out.

#include <dalnim/log/Control.hpp>

#include "LogFileFixture.hpp"
#include "Threads.hpp"

#include <gmock/gmock.h>

#include <csignal>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace logfiletest;
using testing::ElementsAre;

class LogFileOpeningTest : public LogFileFixture
{
protected:
    /** The numbers of the descriptors of this process that are open on `path`. */
    static std::vector<int> descriptorsOf(const String& path)
    {
        struct stat file;
        EXPECT_EQ(0, ::stat(path.c_str(), &file));
        std::vector<int> found;
        for (int number = 0; number < 1024; ++number) {
            struct stat status;
            if (::fstat(number, &status) == 0 && status.st_ino == file.st_ino
                && status.st_dev == file.st_dev) {
                found.push_back(number);
            }
        }
        return found;
    }
};

// ---- files that end inside a line -----------------------------------------------------------

TEST_F(LogFileOpeningTest, FileThatEndsInsideALineGetsANewlineBeforeTheNextLine)
{
    create(path, "one\nfragm");
    open();
    EXPECT_EQ("one\nfragm", contentOf(path)) << "nothing is to be logged yet";
    file->log("two");
    file->log("three");
    EXPECT_EQ("one\nfragm\ntwo\nthree\n", contentOf(path));
}

TEST_F(LogFileOpeningTest, FileThatEndsInANewlineOrIsEmptyGetsNone)
{
    for (const String& before : {String(), String("one\n"), String("\n")}) {
        create(path, before);
        file->setPath(folder / "other");
        file->setPath(path);
        file->log("two");
        EXPECT_EQ(before + "two\n", contentOf(path));
    }
}

TEST_F(LogFileOpeningTest, StreamOfAFileThatEndsInsideALineBeginsOnALineOfItsOwn)
{
    create(path, "fragm");
    file->setPath(path);
    *file->getStream() << "inserted\n";
    file->log("logged");
    EXPECT_EQ("fragm\ninserted\nlogged\n", contentOf(path));
}

TEST_F(LogFileOpeningTest, FileThatMayNotBeReadIsWritten)
{
    create(path, "fragm");
    ASSERT_EQ(0, ::chmod(path.c_str(), 0222));
    file->setPath(path);
    {
        const AsNobody nobody;
        file->log("line");
    }
    EXPECT_EQ("fragmline\n", contentOf(path));
}

// ---- files that are not renamed -------------------------------------------------------------

TEST_F(LogFileOpeningTest, LinkToADeviceIsNeverRenamed)
{
    createFullFile(path);
    open(1);
    for (int i = 0; i < 3; ++i) {
        file->log("line");
        EXPECT_EQ(WRITE_ERROR_MESSAGE + "line\n", err.take());
    }
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("server.log"));
    EXPECT_EQ(path, file->getPath());
}

TEST_F(LogFileOpeningTest, LinkToADescriptorOfTheProcessIsNeverRenamed)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  const int opened = ::open((folder / "out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
                  ASSERT_EQ(STDOUT_FILENO, ::dup2(opened, STDOUT_FILENO));
                  std::filesystem::create_symlink("/proc/self/fd/1", folder / "stdout");
                  std::filesystem::create_symlink("stdout", path);
                  open(1);
                  file->log("one");
                  file->log("two");
                  EXPECT_EQ("", err.take());
                  EXPECT_EQ("one\ntwo\n", contentOf(folder / "out"));
                  EXPECT_THAT(namesIn(folder.path()), ElementsAre("out", "server.log", "stdout"));
              }));
}

TEST_F(LogFileOpeningTest, RegularFileAtTheEndOfLinksIsRotated)
{
    create(folder / "target", "");
    std::filesystem::create_symlink("target", folder / "link");
    std::filesystem::create_symlink("link", path);
    open(1);
    file->log("one");
    file->log("two");
    EXPECT_EQ("one\n", contentOf(folder / "target"));
    EXPECT_EQ("two\n", contentOf(old(0)));
}

// ---- the stream that is handed out ----------------------------------------------------------

TEST_F(LogFileOpeningTest, StreamIsAnOpenFileStreamThatFollowsTheRotation)
{
    open(10);
    auto* const stream = dynamic_cast<std::ofstream*>(file->getStream());
    ASSERT_NE(nullptr, stream);
    EXPECT_TRUE(stream->is_open());
    *stream << "inserted\n";
    EXPECT_EQ("inserted\n", contentOf(path));
    file->log("one");
    EXPECT_EQ("inserted\none\n", contentOf(old(0)));
    EXPECT_TRUE(stream->is_open());
    *stream << "in the next\n";
    EXPECT_EQ("in the next\n", contentOf(path));
    EXPECT_EQ(stream, file->getStream());
}

TEST_F(LogFileOpeningTest, StreamWritesToTheFileThatTheLogWritesTo)
{
    open();
    file->log("one");
    std::filesystem::rename(path, folder / "moved");
    *file->getStream() << "two\n";
    file->log("three");
    EXPECT_EQ("one\ntwo\nthree\n", contentOf(folder / "moved"));
    EXPECT_FALSE(exists(path));
}

TEST_F(LogFileOpeningTest, StateOfTheStreamDoesNotStopLines)
{
    open(10);
    std::ostream* const stream = file->getStream();
    stream->setstate(std::ios_base::badbit);
    file->log("one");
    EXPECT_EQ("", err.take());
    EXPECT_EQ("one\n", contentOf(path));
    EXPECT_TRUE(file->is_open());
    EXPECT_TRUE(stream->bad());
}

TEST_F(LogFileOpeningTest, DescriptorsAreAboveTheStandardOnesAndOneUntilAStreamIsAskedFor)
{
    open();
    file->log("one");
    EXPECT_THAT(descriptorsOf(path), ElementsAre(testing::Gt(2)));
    file->getStream();
    file->getStream();
    EXPECT_THAT(descriptorsOf(path), ElementsAre(testing::Gt(2), testing::Gt(2)));
    for (const int number : descriptorsOf(path)) {
        EXPECT_EQ(FD_CLOEXEC, ::fcntl(number, F_GETFD));
    }
    file->close();
    EXPECT_THAT(descriptorsOf(path), ElementsAre());
}

// ---- cancellation ---------------------------------------------------------------------------

TEST_F(LogFileOpeningTest, CancelledThreadWritesItsLineWholly)
{
    constexpr int PIPE_SIZE = 4096;
    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600));
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_EQ(PIPE_SIZE, ::fcntl(reader, F_SETPIPE_SZ, PIPE_SIZE));
    ASSERT_EQ(0, ::fcntl(reader, F_SETFL, 0));
    open();
    const String line(20000, 'x');
    bool returned = false;
    logtest::LoggingThread logging([&] {
        file->log(line);
        returned = true;
        ::pthread_testcancel();
        ADD_FAILURE() << "was not cancelled";
    });
    logging.awaitBlocked();
    EXPECT_EQ(0, ::pthread_cancel(logging.handle()));
    String all;
    while (all.size() < line.size() + 1) {
        char bytes[PIPE_SIZE];
        const ssize_t count = ::read(reader, bytes, sizeof bytes);
        ASSERT_LT(0, count);
        all.append(bytes, static_cast<std::size_t>(count));
    }
    logging.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(line + "\n", all);
    EXPECT_EQ("", err.take());
    file->log("next");
    char bytes[16] = {};
    EXPECT_EQ(5, ::read(reader, bytes, sizeof bytes));
    EXPECT_STREQ("next\n", bytes);
    ::close(reader);
}

/** Lets the calling thread end at the next point where it may be cancelled. */
void cancelSoon()
{
    int before = 0;
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    ::pthread_cancel(::pthread_self());
    ::pthread_setcancelstate(before, nullptr);
}

TEST_F(LogFileOpeningTest, ThreadThatIsCancelledWhileItOpensAPipeEndsAlone)
{
    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600));
    for (const unsigned int mode : {com::kor::dal::nim::log::Control::MODE_OF_UMASK, 0640u}) {
        open();
        file->setFileMode(mode);
        logtest::LoggingThread logging([&] {
            file->log("one");
            ADD_FAILURE() << "was not cancelled";
        });
        logging.awaitBlocked();
        EXPECT_EQ(0, ::pthread_cancel(logging.handle()));
        logging.join();
        EXPECT_EQ(path, file->getPath());
        const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        file->log("two");
        char bytes[16] = {};
        EXPECT_EQ(4, ::read(reader, bytes, sizeof bytes));
        EXPECT_STREQ("two\n", bytes);
        ::close(reader);
        EXPECT_EQ("", err.take());
    }
}

TEST_F(LogFileOpeningTest, ThreadWithAPendingCancellationCanOpenAndCloseAFile)
{
    create(path, "fragment");
    open();
    bool closed = false;
    logtest::LoggingThread opening([&] {
        cancelSoon();
        file->log("one");
        ADD_FAILURE() << "was not cancelled";
    });
    opening.join();
    *file->getStream() << "two\n";
    file->log("three");
    logtest::LoggingThread closing([&] {
        cancelSoon();
        file->close();
        closed = true;
        ::pthread_testcancel();
        ADD_FAILURE() << "was not cancelled";
    });
    closing.join();
    EXPECT_TRUE(closed);
    EXPECT_EQ("fragment\ntwo\nthree\n", contentOf(path));
    EXPECT_EQ("", file->getPath());
}

}
