#include "ToolFixture.hpp"

#include <dalnim/log/LogFile.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <future>
#include <thread>
#include <unistd.h>

namespace {

using com::kor::dal::nim::log::LogFile;
using com::kor::dal::nim::log::LogFileRef;

const char REMOVED[] = ": a file was deleted before a newer one was found; records may be missing\n";

/** A log that this process writes, and a nimlog that follows it. */
class NimlogFollowTest : public ToolFixture
{
protected:
    NimlogFollowTest() : path(directory.file("app.log")), log(new LogFile) {}

    void SetUp() override
    {
        log->setPath(path);
    }

    void start(const std::vector<std::string>& arguments = {})
    {
        std::vector<std::string> command = {NIMLOG_PROGRAM, "--follow", "--mask", "SEVERITY", path};
        command.insert(command.end(), arguments.begin(), arguments.end());
        nimlog = std::make_unique<support::ChildProcess>(command, outputs.path());
    }

    /** Starts nimlog with a preloaded library. */
    void startPreloaded(const std::string& library)
    {
        nimlog = std::make_unique<support::ChildProcess>(
            std::vector<std::string>{"/usr/bin/env", "LD_PRELOAD=" + library, NIMLOG_PROGRAM, "--follow",
                                     "--mask", "SEVERITY", path},
            outputs.path());
    }

    /** Waits until the output ends with a string. Returns false after a minute. */
    bool showsLast(const std::string& text) const
    {
        for (int round = 0; round < 6000; ++round) {
            const std::string output = nimlog->output();
            if (output.size() >= text.size() && output.substr(output.size() - text.size()) == text) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    /** Stops nimlog and checks its output. */
    void expectShown(const std::string& output, const std::string& errors = "", int signal = SIGINT)
    {
        nimlog->signal(signal);
        EXPECT_EQ(nimlog->wait(), 0);
        const std::string shown = nimlog->output();
        const auto differing = std::mismatch(shown.begin(), shown.end(), output.begin(), output.end());
        EXPECT_TRUE(shown == output) << "shown: ..." << around(shown, differing.first) << "\nexpected: ..."
                                     << around(output, differing.second);
        EXPECT_EQ(nimlog->errors(), errors);
    }

    /** Returns the string around a position, for messages. */
    static std::string around(const std::string& text, std::string::const_iterator position)
    {
        const auto at = static_cast<std::size_t>(position - text.begin());
        return text.substr(at - std::min<std::size_t>(at, 100), 300);
    }

    void append(const std::string& text) const
    {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        ASSERT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(file);
    }

    const std::string path;
    LogFileRef log;
    std::unique_ptr<support::ChildProcess> nimlog;
};

TEST_F(NimlogFollowTest, PrintsNewRecords)
{
    log->log("INFO : first");
    start();
    ASSERT_TRUE(showsLast("INFO : first\n"));
    log->log("INFO : second\nwith two lines");
    ASSERT_TRUE(showsLast("INFO : second\nwith two lines\n"));
    expectShown("INFO : first\nINFO : second\nwith two lines\n");
}

TEST_F(NimlogFollowTest, EndsOnSigterm)
{
    log->log("INFO : first");
    start();
    ASSERT_TRUE(showsLast("INFO : first\n"));
    expectShown("INFO : first\n", "", SIGTERM);
}

TEST_F(NimlogFollowTest, ContinuesAfterEachRotation)
{
    // Each line fills a file. There are at most two rotated files.
    log->setMaxFileSize(1);
    log->setMaxNumberOfFiles(2);
    log->log("INFO : 0");
    start();
    std::string expected = "INFO : 0\n";
    ASSERT_TRUE(showsLast(expected));
    for (int number = 1; number <= 40; ++number) {
        const std::string line = "INFO : " + std::to_string(number);
        log->log(line);
        ASSERT_TRUE(showsLast(line + '\n'));
        expected += line + '\n';
    }
    expectShown(expected);
}

TEST_F(NimlogFollowTest, FastRotationsLoseAndRepeatNoRecord)
{
    log->setMaxFileSize(2000);
    log->log("INFO : 0");
    start();
    ASSERT_TRUE(showsLast("INFO : 0\n"));
    std::string expected = "INFO : 0\n";
    testing::internal::CaptureStderr();
    for (int number = 1; number <= 5000; ++number) {
        const std::string line = "INFO : " + std::to_string(number);
        log->log(line);
        expected += line + '\n';
    }
    testing::internal::GetCapturedStderr();
    ASSERT_TRUE(std::filesystem::exists(path + ".20"));
    ASSERT_TRUE(showsLast("INFO : 5000\n"));
    expectShown(expected);
}

#ifdef ROTATE_AT_STAT
TEST_F(NimlogFollowTest, ReadsTheRestOfAFileThatIsRotatedBetweenTwoReads)
{
    append("INFO : first\n");
    startPreloaded(ROTATE_AT_STAT);
    ASSERT_TRUE(showsLast("INFO : first\n"));
    support::writeFile(path + ".arm", "");
    ASSERT_TRUE(showsLast("INFO : next\n"));
    expectShown("INFO : first\nINFO : late\nINFO : next\n");
}

/** The oldest file has been renamed, and the next one is renamed while the directory is read. */
TEST_F(NimlogFollowTest, FileRenamedDuringADirectoryReadIsNotTakenForAGap)
{
    append("INFO : third\n");
    support::writeFile(path + ".0", "INFO : second\n");
    support::writeFile(path + ".2", "INFO : first\n");
    support::writeFile(path + ".arm", "");
    startPreloaded(ROTATE_AT_READDIR);
    ASSERT_TRUE(showsLast("INFO : third\n"));
    expectShown("INFO : first\nINFO : second\nINFO : third\n");
    EXPECT_TRUE(std::filesystem::exists(path + ".1"));
    EXPECT_FALSE(std::filesystem::exists(path + ".arm"));
}
#endif

/** A dangling link under the name of a rotated file is neither a file nor a gap. */
TEST_F(NimlogFollowTest, DanglingLinksAreSkipped)
{
    append("INFO : second\n");
    std::filesystem::create_symlink(directory.file("none"), path + ".0");
    support::writeFile(path + ".1", "INFO : first\n");
    std::filesystem::create_symlink(directory.file("none"), path + ".2");
    start();
    ASSERT_TRUE(showsLast("INFO : second\n"));
    expectShown("INFO : first\nINFO : second\n");
}

TEST_F(NimlogFollowTest, MayStartDuringARotation)
{
    log->setMaxFileSize(1000);
    std::string expected;
    testing::internal::CaptureStderr();
    std::promise<void> isRotating;
    std::promise<void> isFollowed;
    std::thread writer([&] {
        for (int number = 1; number <= 4000; ++number) {
            const std::string line = "INFO : " + std::to_string(number);
            log->log(line);
            expected += line + '\n';
            if (number == 100) {
                isRotating.set_value();
                isFollowed.get_future().wait();
            }
        }
    });
    // Started by the main thread: the child is killed when the thread that started it ends.
    isRotating.get_future().wait();
    start();
    isFollowed.set_value();
    writer.join();
    testing::internal::GetCapturedStderr();
    ASSERT_TRUE(showsLast("INFO : 4000\n"));
    expectShown(expected);
}

TEST_F(NimlogFollowTest, WaitsForALogThatDoesNotExistYet)
{
    start();
    log->log("INFO : first");
    ASSERT_TRUE(showsLast("INFO : first\n"));
    expectShown("INFO : first\n");
}

TEST_F(NimlogFollowTest, WaitsForTheRestOfALine)
{
    append("INFO : first\nINFO : par");
    start();
    ASSERT_TRUE(showsLast("INFO : first\n"));
    append("tly\n");
    ASSERT_TRUE(showsLast("INFO : partly\n"));
    expectShown("INFO : first\nINFO : partly\n");
}

TEST_F(NimlogFollowTest, PrintsAnUnfinishedLineAtTheEnd)
{
    append("INFO : first\nINFO : without end");
    start();
    ASSERT_TRUE(showsLast("INFO : first\n"));
    expectShown("INFO : first\nINFO : without end\n");
}

TEST_F(NimlogFollowTest, WarnsIfTheFileWasRemoved)
{
    log->log("INFO : first");
    start();
    ASSERT_TRUE(showsLast("INFO : first\n"));
    support::writeFile(path + ".new", "INFO : second\n");
    std::filesystem::rename(path + ".new", path);
    ASSERT_TRUE(showsLast("INFO : second\n"));
    expectShown("INFO : first\nINFO : second\n", "nimlog: " + path + REMOVED);
}

TEST_F(NimlogFollowTest, ReplacingTheLiveFileRepeatsNoRotatedFile)
{
    support::writeFile(path + ".0", "INFO : old\n");
    append("INFO : first\n");
    start();
    ASSERT_TRUE(showsLast("INFO : first\n"));
    std::filesystem::remove(path);
    append("INFO : second\n");
    ASSERT_TRUE(showsLast("INFO : second\n"));
    expectShown("INFO : old\nINFO : first\nINFO : second\n", "nimlog: " + path + REMOVED);
}

TEST_F(NimlogFollowTest, TruncatedFileIsReadFromTheBeginning)
{
    append("INFO : first\nINFO : second\n");
    start();
    ASSERT_TRUE(showsLast("INFO : second\n"));
    std::filesystem::resize_file(path, 0);
    append("INFO : third\n");
    ASSERT_TRUE(showsLast("INFO : third\n"));
    expectShown("INFO : first\nINFO : second\nINFO : third\n",
                "nimlog: " + path + ": the file was truncated; reading it from the beginning\n");
}

/** nimlog is stopped during each refill, so that it finds the file as long as before, or longer. */
TEST_F(NimlogFollowTest, TruncatedAndRefilledFileIsReadFromTheBeginning)
{
    append("INFO : first\nINFO : second\n");
    start();
    ASSERT_TRUE(showsLast("INFO : second\n"));
    std::string expected = "INFO : first\nINFO : second\n";
    std::string errors;
    const std::string message =
        "nimlog: " + path + ": the file was truncated; reading it from the beginning\n";
    for (const std::string& refill :
         // The same length; longer; longer, with the same start; longer, with the same bytes at the old end.
         {std::string("INFO : third\nINFO : fourth\n"), "INFO : " + std::string(3000, 'x') + "\nINFO : 5\n",
          "INFO : " + std::string(2000, 'x') + std::string(3000, 'y') + "\nINFO : 6\n",
          "INFO : z" + std::string(1999, 'x') + std::string(3000, 'y') + "\nINFO : 6\nINFO : 7\n"}) {
        nimlog->signal(SIGSTOP);
        std::filesystem::resize_file(path, 0);
        append(refill);
        nimlog->signal(SIGCONT);
        expected += refill;
        errors += message;
        ASSERT_TRUE(showsLast(refill));
    }
    expectShown(expected, errors);
}

TEST_F(NimlogFollowTest, ContinuesAfterTheLastReadOfALongFile)
{
    append("INFO : " + std::string(1000000, 'x') + '\n');
    start();
    std::string expected = "INFO : " + std::string(1000000, 'x') + '\n';
    ASSERT_TRUE(showsLast(expected));
    for (std::size_t number = 0; number < 20; ++number) {
        const std::string line = "INFO : " + std::to_string(number) + std::string(200 * number, 'y') + '\n';
        append(line);
        expected += line;
        ASSERT_TRUE(showsLast(line));
    }
    expectShown(expected);
}

TEST_F(NimlogFollowTest, RotatedFileThatIsAFifoIsSkipped)
{
    append("INFO : second\n");
    support::writeFile(path + ".1", "INFO : first\n");
    ASSERT_EQ(0, mkfifo((path + ".0").c_str(), 0600));
    start();
    ASSERT_TRUE(showsLast("INFO : second\n"));
    append("INFO : third\n");
    ASSERT_TRUE(showsLast("INFO : third\n"));
    expectShown("INFO : first\nINFO : second\nINFO : third\n",
                "nimlog: " + path + ".0: skipped, because it is a FIFO\n");
}

/** As logrotate does with the option dateext. */
TEST_F(NimlogFollowTest, ContinuesAfterAFileGotADateInItsName)
{
    support::writeFile(path + "-20261112", "INFO : 0\n");
    ASSERT_EQ(std::system(("gzip '" + path + "-20261112'").c_str()), 0);
    append("INFO : 1\n");
    start();
    ASSERT_TRUE(showsLast("INFO : 1\n"));
    std::filesystem::rename(path, path + "-20261113");
    std::ofstream(path + "-20261113", std::ios::app) << "INFO : rest\n";
    append("INFO : 2\n");
    ASSERT_TRUE(showsLast("INFO : 2\n"));
    // Two rotations between two checks, and files that are compressed after they were read.
    nimlog->signal(SIGSTOP);
    std::filesystem::rename(path, path + "-20261114");
    append("INFO : 3\n");
    std::filesystem::rename(path, path + "-20261115");
    append("INFO : 4\n");
    ASSERT_EQ(std::system(("gzip '" + path + "-20261113'").c_str()), 0);
    nimlog->signal(SIGCONT);
    ASSERT_TRUE(showsLast("INFO : 4\n"));
    expectShown("INFO : 0\nINFO : 1\nINFO : rest\nINFO : 2\nINFO : 3\nINFO : 4\n");
}

TEST_F(NimlogFollowTest, LiveFileMayAppearAfterCompressedFiles)
{
    support::writeFile(path + ".1", "INFO : 1\n");
    ASSERT_EQ(std::system(("xz '" + path + ".1'").c_str()), 0);
    start();
    ASSERT_TRUE(showsLast("INFO : 1\n"));
    append("INFO : 2\n");
    ASSERT_TRUE(showsLast("INFO : 2\n"));
    append("INFO : 3\n");
    ASSERT_TRUE(showsLast("INFO : 3\n"));
    expectShown("INFO : 1\nINFO : 2\nINFO : 3\n");
}

TEST_F(NimlogFollowTest, LastRecordsPrecedeTheNewOnes)
{
    append("INFO : 1\nINFO : 2\nmore\nERROR : 3\nINFO : 4\nof two lines\n");
    start({"--last", "2"});
    ASSERT_TRUE(showsLast("INFO : 4\nof two lines\n"));
    append("INFO : 5\n");
    ASSERT_TRUE(showsLast("INFO : 5\n"));
    append("INFO : 6\nINFO : 7\nINFO : 8\n");
    ASSERT_TRUE(showsLast("INFO : 8\n"));
    expectShown("ERROR : 3\nINFO : 4\nof two lines\nINFO : 5\nINFO : 6\nINFO : 7\nINFO : 8\n");
}

/** The last record in the file is not among them. */
TEST_F(NimlogFollowTest, LastRecordsAreThoseThatTheFilterSelects)
{
    append("ERROR : 1\nERROR : 2\nERROR : 3\nINFO : 4\n");
    start({"--last", "2", "--severity", "error"});
    ASSERT_TRUE(showsLast("ERROR : 3\n"));
    append("INFO : 5\nERROR : 6\n");
    ASSERT_TRUE(showsLast("ERROR : 6\n"));
    expectShown("ERROR : 2\nERROR : 3\nERROR : 6\n");
}

TEST_F(NimlogFollowTest, FiltersNewRecords)
{
    log->log("INFO : first");
    log->log("ERROR : second");
    start({"--severity", "error"});
    ASSERT_TRUE(showsLast("ERROR : second\n"));
    log->log("INFO : third\nof two lines");
    log->log("FATAL : fourth");
    ASSERT_TRUE(showsLast("FATAL : fourth\n"));
    expectShown("ERROR : second\nFATAL : fourth\n");
}

}
