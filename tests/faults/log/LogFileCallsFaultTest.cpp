// Failures of each system call of a log file, also those that no real file causes.

#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/FixedErr.hpp"
#include "layer/Walk.hpp"
#include "log/LogSet.hpp"

#include <dalnim/sys/SysError.hpp>

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::sys::system_error;
using faults::Call;
using faults::Fault;
using testing::HasSubstr;

/** The buffer of standard error before a test replaces it. */
std::streambuf* const ownBuffer = std::cerr.rdbuf();

class LogFileCallsFault : public LogFileFixture
{
protected:
    /** Returns the error that logging a line throws if a call fails: "number message"; empty for none. */
    String failureOf(Call call, int error, const String& line)
    {
        return faults::failureOf(call, error, [&] { file->log(line); });
    }

    /** Logs the next line on another thread, which checks that the lock is free. */
    void logNext(const String& line)
    {
        std::thread([&] { EXPECT_NO_THROW(file->log(line)); }).join();
    }
};

// ---- opening --------------------------------------------------------------------------------

TEST_F(LogFileCallsFault, PathThatCannotBeOpenedIsCleared)
{
    for (const int error : {EMFILE, ENFILE, ENOSPC, EIO, ENOMEM, EACCES, EINTR, EROFS}) {
        file->setPath(path);
        err.take();
        EXPECT_EQ(std::to_string(error) + " " + std::strerror(error), failureOf(Call::OPEN, error, "lost"));
        EXPECT_EQ("", file->getPath());
        EXPECT_FALSE(file->is_open());
        EXPECT_FALSE(file->is_valid());
        EXPECT_EQ("", err.take());
        EXPECT_FALSE(exists(path));
        logNext("next");
        EXPECT_EQ("next\n", err.take());
        expectStandardError();
    }
    file->setPath(path);
    logNext("at last");
    EXPECT_EQ("at last\n", contentOf(path));
}

TEST_F(LogFileCallsFault, DirectoryThatCannotBeCreatedIsTriedAgain)
{
    const String name = folder / "new/server.log";
    for (const int error : {EACCES, ENOSPC, EROFS, EIO}) {
        file->setPath(name);
        EXPECT_THAT(failureOf(Call::MKDIR, error, "lost"),
                    testing::StartsWith("2 No such file or directory:"));
        EXPECT_EQ(name, file->getPath());
        EXPECT_FALSE(exists(folder / "new"));
        EXPECT_EQ("", err.take());
    }
    logNext("at last");
    EXPECT_EQ("at last\n", contentOf(name));
}

TEST_F(LogFileCallsFault, PathThatMayNotBeCreatedIsCleared)
{
    file->setPath(path);
    EXPECT_EQ("13 Permission denied", failureOf(Call::ACCESS, EACCES, "lost"));
    EXPECT_EQ("", file->getPath());
    logNext("next");
    EXPECT_EQ("next\n", err.take());
}

// ---- writing --------------------------------------------------------------------------------

TEST_F(LogFileCallsFault, LineThatCannotBeWrittenIsWrittenToStandardError)
{
    for (const int error : {EIO, ENOSPC, EDQUOT, EFBIG, EAGAIN, EBADF}) {
        std::filesystem::remove(path);
        open();
        file->log("one");
        EXPECT_EQ("", failureOf(Call::WRITE, error, "two"));
        EXPECT_EQ(WRITE_ERROR_MESSAGE + "two\n", err.take());
        EXPECT_EQ(path, file->getPath());
        EXPECT_FALSE(file->is_open());
        EXPECT_EQ("one\n", contentOf(path));
        // The next line is written to the file again.
        logNext("three");
        EXPECT_EQ("", err.take());
        EXPECT_TRUE(file->is_open());
        EXPECT_EQ("one\nthree\n", contentOf(path));
    }
}

TEST_F(LogFileCallsFault, InterruptedWriteContinues)
{
    open();
    file->log("one");
    Fault fault(Call::WRITE, EINTR, 1, 3);
    EXPECT_EQ("", faults::failureUnder(fault, [&] { file->log("two"); }));
    EXPECT_EQ(4u, fault.calls());
    EXPECT_EQ("", err.take());
    EXPECT_EQ("one\ntwo\n", contentOf(path));
}

TEST_F(LogFileCallsFault, FileThatFailedRecoversByItsRotation)
{
    open(10);
    file->log("one");
    EXPECT_EQ("", failureOf(Call::WRITE, EIO, "two"));
    // By then, the position of standard error exceeds the size limit.
    EXPECT_THAT(err.take(), testing::StartsWith(WRITE_ERROR_MESSAGE + "two\nLogFile:"));
    logNext("three");
    EXPECT_EQ("one\n", contentOf(old(0)));
    EXPECT_EQ("three\n", contentOf(path));
}

// ---- rotating -------------------------------------------------------------------------------

class RotationCallsFault : public LogFileCallsFault
{
protected:
    /** Creates two rotated files, and a current one that the next line fills. */
    void prepare(std::size_t maxFiles = 0)
    {
        for (const String& name : namesIn(folder.path())) {
            std::filesystem::remove(folder / name);
        }
        create(old(0), "zero\n");
        create(old(1), "minus one\n");
        open(10, maxFiles);
        file->log("one");
    }

    /** Returns all lines of all files, in the order of the names. */
    String allLines()
    {
        String all;
        for (const String& name : namesIn(folder.path())) {
            all += contentOf(folder / name);
        }
        return all;
    }
};

TEST_F(RotationCallsFault, FailedRenameAtAnyStepLosesNoRecord)
{
    for (const int error : {EACCES, EIO, ENOSPC, EROFS, EBUSY}) {
        for (unsigned int step = 1; step <= 3; ++step) {
            SCOPED_TRACE(std::to_string(error) + " at step " + std::to_string(step));
            prepare();
            Fault fault(Call::RENAME, error, step, 1);
            EXPECT_EQ("", faults::failureUnder(fault, [&] { file->log("0123456789"); }));
            EXPECT_EQ(1u, fault.failed());
            EXPECT_THAT(err.take(),
                        testing::EndsWith("LogFile:#:switchFile(): ERROR: Failed to move old log files: "
                                          + String(std::strerror(error)) + "\n"));
            expectStandardError();
            EXPECT_EQ("one\n0123456789\n", contentOf(path));
            EXPECT_THAT(allLines(), testing::AllOf(HasSubstr("zero\n"), HasSubstr("minus one\n")));
            logNext("next");
            EXPECT_EQ("next\n", err.take());
        }
        prepare();
        file->log("0123456789");
        EXPECT_EQ("one\n0123456789\n", contentOf(old(0)));
        EXPECT_EQ("minus one\n", contentOf(old(2)));
    }
}

TEST_F(RotationCallsFault, OldestFileThatCannotBeRemovedIsOnlyTraced)
{
    for (const int error : {EACCES, EIO, EBUSY}) {
        prepare(2);
        EXPECT_EQ("", failureOf(Call::REMOVE, error, "0123456789"));
        const String traces = err.take();
        EXPECT_THAT(traces, HasSubstr("LogFile:#:switchFile(): Failed to remove [" + old(1)
                                      + "]: " + std::strerror(error) + "\n"));
        EXPECT_THAT(traces, testing::Not(HasSubstr("ERROR")));
        EXPECT_EQ("zero\n", contentOf(old(1)));
        EXPECT_EQ("one\n0123456789\n", contentOf(old(0)));
        logNext("next");
        EXPECT_EQ("next\n", contentOf(path));
    }
}

TEST_F(RotationCallsFault, FileThatCannotBeReopenedIsReported)
{
    for (const int error : {EMFILE, EACCES, ENOSPC, EIO, ENOMEM}) {
        prepare();
        EXPECT_EQ("", failureOf(Call::OPEN, error, "0123456789"));
        EXPECT_THAT(err.take(), testing::EndsWith("LogFile:#:switchFile(): ERROR: Failed to open log file ["
                                                  + path + "]" + std::strerror(error) + "\n"));
        expectStandardError();
        EXPECT_FALSE(exists(path));
        EXPECT_EQ("one\n0123456789\n", contentOf(old(0)));
        logNext("next");
        EXPECT_EQ("next\n", err.take());
    }
}

TEST_F(RotationCallsFault, FileThatCannotBeOpenedForAMomentIsTriedAgain)
{
    for (const int error : {EMFILE, ENFILE, ENOMEM, EINTR}) {
        prepare();
        Fault fault(Call::OPEN, error, 1, 3);
        EXPECT_EQ("", faults::failureUnder(fault, [&] { file->log("0123456789"); }));
        EXPECT_EQ(3u, fault.failed());
        EXPECT_THAT(err.take(), testing::Not(HasSubstr("ERROR")));
        EXPECT_EQ("one\n0123456789\n", contentOf(old(0)));
        logNext("next");
        EXPECT_EQ("next\n", contentOf(path));
    }
}

TEST_F(RotationCallsFault, FileThatCannotBeOpenedForAnotherReasonIsNotTriedAgain)
{
    for (const int error : {EACCES, ENOSPC, EIO}) {
        prepare();
        Fault fault(Call::OPEN, error, 1, 3);
        EXPECT_EQ("", faults::failureUnder(fault, [&] { file->log("0123456789"); }));
        EXPECT_EQ(1u, fault.failed());
        expectStandardError();
    }
}

/** The errors of file systems and kernels that cannot rename without replacing. */
TEST_F(RotationCallsFault, FilesAreLinkedAndUnlinkedWhereTheyCannotBeRenamedWithoutReplacing)
{
    for (const int error : {EINVAL, ENOSYS, EPERM}) {
        prepare();
        EXPECT_EQ("", failureOf(Call::RENAME, error, "0123456789"));
        EXPECT_THAT(err.take(), testing::Not(HasSubstr("ERROR")));
        EXPECT_EQ("one\n0123456789\n", contentOf(old(0)));
        EXPECT_EQ("zero\n", contentOf(old(1)));
        EXPECT_EQ("minus one\n", contentOf(old(2)));
        EXPECT_EQ((std::vector<String>{"server.log", "server.log.0", "server.log.1", "server.log.2"}),
                  namesIn(folder.path()));
    }
}

/** Interrupted between link and unlink, for each of the rotated files and the current one. */
TEST_F(RotationCallsFault, MoveThatWasCutShortIsCompletedByTheNextRotation)
{
    for (int named = 0; named <= 2; ++named) {
        prepare();
        const String from = named == 0 ? path : old(static_cast<std::size_t>(named) - 1);
        std::filesystem::remove(old(2));
        if (named == 1) {
            std::filesystem::rename(old(1), old(2));
        } else if (named == 0) {
            std::filesystem::rename(old(1), old(2));
            std::filesystem::rename(old(0), old(1));
        }
        std::filesystem::create_hard_link(from, old(static_cast<std::size_t>(named)));
        file->setPath(path);
        file->log("0123456789");
        EXPECT_EQ("one\n0123456789\n", contentOf(old(0)));
        EXPECT_EQ("minus one\nzero\n", contentOf(old(2)) + contentOf(old(1))) << named;
        EXPECT_EQ(4u, namesIn(folder.path()).size());
        EXPECT_EQ(1u, std::filesystem::hard_link_count(old(0)));
    }
}

TEST_F(RotationCallsFault, OldFilesInADirectoryThatCannotBeReadAreKept)
{
    for (const int error : {EACCES, EMFILE, EIO}) {
        prepare();
        {
            const Fault fault(Call::OPENDIR, error);
            file->setPath(path);
        }
        EXPECT_EQ("LogFile:#:countLogFiles(): Failed to read the directory of [" + path
                      + "]: " + std::strerror(error) + "\n",
                  err.take());
        file->setMaxNumberOfFiles(3);
        file->log("0123456789");
        EXPECT_EQ("one\n0123456789\n", contentOf(old(0)));
        EXPECT_EQ("zero\n", contentOf(old(1)));
        EXPECT_EQ("minus one\n", contentOf(old(2)));
        // The files are counted by their names, so the limit is still applied.
        file->log("9876543210");
        EXPECT_EQ(4u, namesIn(folder.path()).size());
        EXPECT_EQ("zero\n", contentOf(old(2)));
    }
}

TEST_F(RotationCallsFault, OldFilesThatCannotBeRemovedAreTraced)
{
    prepare();
    {
        const Fault fault(Call::REMOVE, EACCES);
        file->setMaxNumberOfFiles(1);
    }
    EXPECT_THAT(err.take(), HasSubstr("LogFile:#:removeFiles(): Could not remove file [" + old(1) + "]\n"));
    EXPECT_EQ("minus one\n", contentOf(old(1)));
    EXPECT_EQ(1u, file->getMaxNumberOfFiles());
}

/** Each rotation loses only the oldest file, which it names, and each line is written to standard error. */
TEST_F(RotationCallsFault, FullDiskCostsTheOldestFilePerRotation)
{
    constexpr std::size_t FILES = 3;
    for (std::size_t i = 0; i < FILES; ++i) {
        create(old(i), "good " + std::to_string(i) + "\n");
    }
    open(10, FILES);
    file->log("live");
    const Fault fault(Call::WRITE, ENOSPC);
    std::vector<String> expected = {"live\n", "good 0\n", "good 1\n", "good 2\n"};
    for (int i = 0; i < 5; ++i) {
        const String line = "refused " + std::to_string(i) + String(10, 'x');
        file->log(line);
        const String printed = err.take();
        // The error message alone exceeds the size limit, so each line starts another rotation.
        EXPECT_THAT(printed, testing::StartsWith(WRITE_ERROR_MESSAGE + line
                                                 + "\nLogFile:#:switchFile(): Switching log file [" + path
                                                 + "] ...\n"));
        EXPECT_THAT(printed, HasSubstr("switchFile(): Removing [" + old(FILES - 1) + "]\n"));
        expected.insert(expected.begin(), String());
        expected.pop_back();
        EXPECT_EQ(expected, (std::vector<String>{contentOf(path), contentOf(old(0)), contentOf(old(1)),
                                                 contentOf(old(2))}));
        EXPECT_EQ(path, file->getPath());
    }
}

/** Calls of each thread fail now and then: each line whose call returned is in a file or on standard error.
 */
TEST_F(RotationCallsFault, FailuresUnderLoadLoseNoRecord)
{
    constexpr unsigned int THREADS = 4;
    constexpr unsigned int LINES = 2000;
    constexpr Call CALLS[] = {Call::RENAME, Call::OPEN, Call::WRITE};
    constexpr unsigned int NEVER = ~0U;
    open(2000);
    std::mutex repair;
    std::atomic<unsigned int> failures{0};
    std::array<std::set<String>, THREADS> returned;
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned int n = 0; n < LINES; ++n) {
                const String line = "line " + std::to_string(t) + ' ' + std::to_string(n);
                try {
                    const Fault fault(CALLS[n % 3], ENOSPC, n % 7 == t ? 1 + n / 3 % 3 : NEVER, 1);
                    file->log(line);
                    returned[t].insert(line);
                    failures += fault.failed();
                } catch (const system_error& error) {
                    // The path was set again, and the file could not be opened.
                    EXPECT_EQ(ENOSPC, error.error());
                }
                const std::lock_guard<std::mutex> guard(repair);
                if (file->getPath().empty()) {
                    file->setPath(path);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    file->close();
    EXPECT_GT(failures, 10u);

    std::array<std::set<String>, THREADS> found;
    std::istringstream lines(wholeLog(path) + err.take());
    for (String line; std::getline(lines, line);) {
        if (line.compare(0, 5, "line ") == 0) {
            EXPECT_TRUE(found.at(static_cast<std::size_t>(line[5] - '0')).insert(line).second)
                << "twice: " << line;
        }
    }
    EXPECT_EQ(returned, found);
}

TEST_F(LogFileCallsFault, OpeningOfAPipeIsRepeatedAfterASignal)
{
    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600));
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    file->setPath(path);
    Fault fault(Call::OPEN, EINTR, 1, 3);
    EXPECT_EQ("", faults::failureUnder(fault, [&] { file->log("line"); }));
    EXPECT_EQ(3u, fault.failed());
    char bytes[16] = {};
    EXPECT_EQ(5, ::read(reader, bytes, sizeof bytes));
    EXPECT_STREQ("line\n", bytes);
    ::close(reader);
}

TEST_F(LogFileCallsFault, InterruptedWriteToStandardErrorContinues)
{
    EXPECT_EQ(0, inChildProcess([this] {
                  const int opened = ::open((folder / "err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
                  ASSERT_EQ(STDERR_FILENO, ::dup2(opened, STDERR_FILENO));
                  const support::StandardErrorTo own(ownBuffer);
                  file->close();
                  Fault fault(Call::WRITE, EINTR, 1, 3);
                  EXPECT_EQ("", faults::failureUnder(fault, [&] { file->log("line"); }));
                  EXPECT_EQ(4u, fault.calls());
                  EXPECT_EQ("line\n", contentOf(folder / "err"));
              }));
}

// ---- memory ---------------------------------------------------------------------------------

TEST_F(LogFileCallsFault, LineIsWrittenCompletelyOrNotAtAll)
{
    const faults::FixedErr fixed;
    for (const bool isOpen : {false, true}) {
        for (const String& line : {String("short"), String(3000, 'x')}) {
            faults::walkAllocations(
                [&] {
                    std::filesystem::remove(path);
                    LogFileRef log(new LogFile);
                    log->setPath(path);
                    if (isOpen) {
                        log->getStream();
                    }
                    return log;
                },
                [&](LogFileRef& log) {
                    if (log->getPath().empty()) {
                        // Cleared, since there was no memory for its stream.
                        log->setPath(path);
                    }
                    log->log(line);
                },
                [&](LogFileRef& log, bool done) {
                    log->close();
                    EXPECT_EQ(done ? line + "\n" : "", exists(path) ? contentOf(path) : String());
                    log->setPath(path);
                });
        }
    }
}

TEST_F(LogFileCallsFault, SettingsAreAppliedOrRunOutOfMemory)
{
    const faults::FixedErr fixed;
    create(old(0), "zero\n");
    EXPECT_GE(faults::walkAllocations([&] { return LogFileRef(new LogFile); },
                                      [&](LogFileRef& log) { log->setPath(path); },
                                      [&](LogFileRef& log, bool done) {
                                          if (done) {
                                              EXPECT_EQ(path, log->getPath());
                                          }
                                      }),
              3u);
}

/** Returns a path that is too long for the trace's buffer, so that each trace allocates memory. */
String longPath(const Folder& folder)
{
    const String directory = folder / String(200, 'a') + '/' + String(200, 'b') + '/' + String(200, 'c');
    std::filesystem::create_directories(directory);
    return directory + '/' + String(200, 'd');
}

TEST_F(LogFileCallsFault, RotationSucceedsOrFallsBackToStandardErrorAndReportsIt)
{
    faults::FixedErr fixed;
    // The first call on a new thread would allocate memory, too.
    faults::WalkOptions options;
    options.onThisThread = true;
    for (const String& name : {path, longPath(folder)}) {
        const String line = "0123456789";
        faults::walkAllocations(
            [&] {
                std::filesystem::remove(name);
                std::filesystem::remove(name + ".0");
                create(name + ".0", "zero\n");
                std::filesystem::remove(name + ".1");
                LogFileRef log(new LogFile);
                log->setPath(name);
                log->log("before");
                log->setMaxFileSize(10);
                fixed.take();
                return log;
            },
            [&](LogFileRef& log) { log->log(line); },
            [&](LogFileRef& log, bool done) {
                EXPECT_TRUE(done);
                const String traces = fixed.take();
                EXPECT_THAT(traces, HasSubstr("switchFile(): Switching log file [" + name + "] ...\n"));
                String all;
                for (const char* const number : {".1", ".0", ""}) {
                    all += exists(name + number) ? contentOf(name + number) : String();
                }
                EXPECT_EQ("zero\nbefore\n0123456789\n", all);
                if (log->getPath().empty()) {
                    EXPECT_THAT(traces, testing::EndsWith("switchFile(): ERROR: std::bad_alloc\n"));
                    log->log("next");
                    EXPECT_EQ("next\n", fixed.take());
                } else {
                    EXPECT_THAT(traces, testing::Not(HasSubstr("ERROR")));
                    EXPECT_EQ("", contentOf(name));
                    log->log("next");
                    EXPECT_EQ("next\n", contentOf(name));
                }
            },
            options);
    }
}

/** Makes standard error reject all output and throw on each failure. */
class ThrowingErr
{
public:
    ThrowingErr()
    {
        std::cerr.clear();
        try {
            std::cerr.exceptions(std::ios_base::badbit);
        } catch (const std::ios_base::failure&) {
            // Without a buffer, badbit is already set; the mask is set nevertheless.
        }
    }
    ThrowingErr(const ThrowingErr&) = delete;
    ThrowingErr& operator=(const ThrowingErr&) = delete;
    ~ThrowingErr()
    {
        std::cerr.exceptions(std::ios_base::goodbit);
    }

private:
    const support::StandardErrorTo nothing{nullptr};
};

TEST_F(LogFileCallsFault, RotationThatCannotTraceSucceeds)
{
    create(old(0), "zero\n");
    open(10);
    file->log("before");
    {
        const ThrowingErr throwing;
        EXPECT_NO_THROW(file->log("0123456789"));
    }
    EXPECT_EQ("before\n0123456789\n", contentOf(old(0)));
    EXPECT_EQ("zero\n", contentOf(old(1)));
    Fault fault(Call::RENAME, EIO);
    EXPECT_EQ("", faults::failureUnder(fault, [&] {
                  const ThrowingErr throwing;
                  file->log("9876543210");
              }));
    EXPECT_EQ("", file->getPath());
    logNext("next");
    EXPECT_EQ("next\n", err.take());
}

TEST_F(LogFileCallsFault, LineThatCannotBeWrittenSurvivesWithoutMemory)
{
    faults::FixedErr fixed;
    for (const String& line : {String("short"), String(3000, 'x')}) {
        LogFileRef log(new LogFile);
        log->setPath(path);
        log->log("one");
        {
            const Fault refused(Call::WRITE, ENOSPC);
            // The second allocation: the first is that of the line itself. A short line needs none.
            Fault memory(Call::NEW, ENOMEM, line.size() < 1000 ? 1 : 2);
            EXPECT_EQ("", faults::failureUnder(memory, [&] { log->log(line); }));
            EXPECT_EQ(line.size() < 1000 ? 0u : 1u, memory.failed());
        }
        EXPECT_EQ(WRITE_ERROR_MESSAGE + line + "\n", fixed.take());
        log->close();
    }
}

}
