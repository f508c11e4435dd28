// What others do to a log's files, pipes and descriptors while threads write to it.

#include "LogSet.hpp"

#include "support/ChildProcess.hpp"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace logfiletest;
using testing::HasSubstr;

constexpr unsigned int THREADS = 4;

/** Threads that write "thread number" to a file, until they are stopped. */
class Writers
{
public:
    /** @param padding  follows each number */
    Writers(LogFile& file, unsigned int limit, String padding = String()) : tail(std::move(padding))
    {
        for (unsigned int t = 0; t < THREADS; ++t) {
            threads.emplace_back([this, &file, t, limit] {
                for (unsigned int n = 0; n < limit && !stopped; ++n) {
                    file.log(std::to_string(t) + ' ' + std::to_string(n) + tail);
                    ++returned[t];
                    // The lock is not fair, and the test itself must acquire it, too.
                    std::this_thread::sleep_for(std::chrono::microseconds(50));
                }
            });
        }
    }
    Writers(const Writers&) = delete;
    Writers& operator=(const Writers&) = delete;
    ~Writers()
    {
        stop();
    }

    /** Waits until the threads have written `more` lines from now on. */
    void waitFor(unsigned int more) const
    {
        for (const unsigned int end = sum() + more; sum() < end;) {
            std::this_thread::yield();
        }
    }

    void stop()
    {
        stopped = true;
        join();
    }
    void join()
    {
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
    }

    unsigned int sum() const
    {
        unsigned int total = 0;
        for (const auto& count : returned) {
            total += count;
        }
        return total;
    }

    /** Expects that `text` contains all lines that were written, once and in order. */
    void expectAll(std::string_view text) const
    {
        Sequences<THREADS> sequences;
        forEachLine(text, [&](std::string_view line) { sequences.take(line); });
        for (unsigned int t = 0; t < THREADS; ++t) {
            EXPECT_EQ(returned[t], sequences.count(t));
        }
    }

private:
    const String tail;
    std::array<std::atomic<unsigned int>, THREADS> returned{};
    std::atomic<bool> stopped{false};
    std::vector<std::thread> threads;
};

constexpr unsigned int ENDLESS = ~0U;

class LogOutsideTest : public LogFileFixture
{
protected:
    static String readAll(int descriptor)
    {
        String text;
        char bytes[65536];
        for (ssize_t count; (count = ::read(descriptor, bytes, sizeof bytes)) > 0;) {
            text.append(bytes, static_cast<std::size_t>(count));
        }
        return text;
    }
};

// ---- files ----------------------------------------------------------------------------------

TEST_F(LogOutsideTest, RenamedFileReceivesTheLinesUntilThePathIsSetAgain)
{
    open();
    file->getStream();
    String all;
    Writers writers(*file, ENDLESS);
    for (int round = 0; round < 20; ++round) {
        writers.waitFor(100);
        const String moved = folder / "moved-" + std::to_string(round);
        std::filesystem::rename(path, moved);
        // As a rotation tool may do before it sends its signal.
        create(path, "");
        writers.waitFor(100);
        EXPECT_EQ("", contentOf(path));
        file->setPath(path);
        all += contentOf(moved);
    }
    writers.stop();
    writers.expectAll(all + contentOf(path));
    EXPECT_EQ("", err.take());
}

TEST_F(LogOutsideTest, RemovedDirectoryIsCreatedWhenThePathIsSetAgain)
{
    const String name = folder / "log/server.log";
    file->setPath(name);
    file->getStream();
    String all;
    Writers writers(*file, ENDLESS);
    for (int round = 0; round < 20; ++round) {
        writers.waitFor(100);
        const int reader = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_NE(-1, reader);
        std::filesystem::remove_all(folder / "log");
        writers.waitFor(100);
        EXPECT_FALSE(exists(folder / "log"));
        file->setPath(name);
        // Each thread may have one that was written before.
        writers.waitFor(THREADS + 1);
        // Lines that were written in between are in the file that has no name any more.
        all += readAll(reader);
        ::close(reader);
        EXPECT_TRUE(exists(name));
    }
    writers.stop();
    writers.expectAll(all + contentOf(name));
    EXPECT_EQ("", err.take());
}

// ---- pipes ----------------------------------------------------------------------------------

class LogPipeTest : public LogOutsideTest
{
protected:
    static constexpr int PIPE_SIZE = 4096;

    LogPipeTest()
    {
        EXPECT_EQ(0, ::mkfifo(path.c_str(), 0600));
        reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_EQ(PIPE_SIZE, ::fcntl(reader, F_SETPIPE_SZ, PIPE_SIZE));
        file->setPath(path);
        file->getStream();
    }
    ~LogPipeTest() override
    {
        closeReader();
    }

    void closeReader()
    {
        if (reader != -1) {
            ::close(reader);
            reader = -1;
        }
    }

    /** How much the pipe holds. */
    int held() const
    {
        int bytes = 0;
        EXPECT_EQ(0, ::ioctl(reader, FIONREAD, &bytes));
        return bytes;
    }

    int reader = -1;
};

TEST_F(LogPipeTest, AStreamThatBlocksHoldsTheWritersAndLosesNothing)
{
    // Both within what a pipe takes in one piece, and beyond it.
    for (const unsigned int padding : {80U, 9000U}) {
        const String tail = ' ' + String(padding, 'x');
        constexpr unsigned int LINES = 50;
        Writers writers(*file, LINES, tail);
        while (held() < PIPE_SIZE - static_cast<int>(tail.size()) - 10) {
            std::this_thread::yield();
        }
        // What has returned is in the pipe already.
        EXPECT_LE(writers.sum() * tail.size(), static_cast<std::size_t>(PIPE_SIZE));

        String all;
        while (all.size() < THREADS * LINES * tail.size() || all.back() != '\n'
               || writers.sum() < THREADS * LINES) {
            all += readAll(reader);
            std::this_thread::yield();
        }
        writers.join();
        all += readAll(reader);
        writers.expectAll(all);
        EXPECT_EQ("", err.take());
        EXPECT_TRUE(file->is_open());
    }
}

TEST_F(LogPipeTest, WithoutAReaderTheLinesSurviveOnStandardError)
{
    // As a server does, so that its peers cannot end it.
    const auto before = ::signal(SIGPIPE, SIG_IGN);
    file->log("one");
    EXPECT_EQ("one\n", readAll(reader));
    closeReader();
    for (const String& line : {String("two"), String("three")}) {
        file->log(line);
        EXPECT_EQ(WRITE_ERROR_MESSAGE + line + "\n", err.take());
    }
    ::signal(SIGPIPE, before);
}

TEST_F(LogPipeTest, WithASizeLimitIsNeverRenamed)
{
    file->setMaxFileSize(1);
    for (const String& line : {String("one\n"), String("two\n")}) {
        file->log(line);
        EXPECT_EQ(line, readAll(reader));
    }
    EXPECT_THAT(namesIn(folder.path()), testing::ElementsAre("server.log"));
    EXPECT_EQ("", err.take());
}

// ---- descriptors ----------------------------------------------------------------------------

TEST_F(LogOutsideTest, StartedProgramInheritsNoFile)
{
    open(10);
    const auto openFilesOfAChild = [this] {
        support::ChildProcess child({"/bin/ls", "-l", "/proc/self/fd"}, folder.path());
        EXPECT_EQ(0, child.wait()) << child.errors();
        return child.output();
    };
    const int inherited = ::open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_NE(-1, inherited);
    EXPECT_THAT(openFilesOfAChild(), HasSubstr(path)) << "nothing would be seen";
    ::close(inherited);

    file->log("short");
    EXPECT_THAT(openFilesOfAChild(), testing::Not(HasSubstr(path)));
    file->getStream();
    EXPECT_THAT(openFilesOfAChild(), testing::Not(HasSubstr(path)));
    file->log("it rotates");
    EXPECT_TRUE(exists(old(0)));
    EXPECT_THAT(openFilesOfAChild(), testing::Not(HasSubstr(path)));
    file->setPath(folder / "other.log");
    file->log("short");
    EXPECT_THAT(openFilesOfAChild(), testing::Not(HasSubstr("other.log")));
}

}
