// A process that is killed at each system call of a rotation, and the process that follows it.

#include "LogSet.hpp"

#include <gmock/gmock.h>

#include <csignal>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace logfiletest;
using testing::HasSubstr;

/** A traced child process, which stops at the beginning and at the end of each of its system calls. */
class TracedProcess
{
public:
    template <class Body>
    explicit TracedProcess(Body body) : child(::fork())
    {
        if (child == 0) {
            ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            ::raise(SIGSTOP);
            body();
            ::_exit(0);
        }
        ::waitpid(child, &status, 0);
    }
    TracedProcess(const TracedProcess&) = delete;
    TracedProcess& operator=(const TracedProcess&) = delete;
    ~TracedProcess()
    {
        if (isAlive()) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
        }
    }

    bool isAlive() const
    {
        return WIFSTOPPED(status);
    }

    /** Continues until the next beginning or end of a system call. */
    void step()
    {
        ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        ::waitpid(child, &status, 0);
    }

private:
    const pid_t child;
    int status = 0;
};

bool canTrace()
{
    TracedProcess process([] {});
    process.step();
    return process.isAlive();
}

class RotationKillTest : public LogFileFixture
{
protected:
    void SetUp() override
    {
        if (!canTrace()) {
            GTEST_SKIP() << "this process may not trace another one";
        }
    }

    /** Kills a process after so many steps of its rotation. Returns false if the rotation was complete. */
    bool rotateUpTo(int steps, std::size_t maxFiles)
    {
        for (const String& name : namesIn(folder.path())) {
            std::filesystem::remove(folder / name);
        }
        for (std::size_t i = 0; i < OLD_FILES; ++i) {
            create(old(i), "old " + std::to_string(i) + "\n");
        }
        open(10, maxFiles);
        file->log("live");
        TracedProcess process([this] { file->log("0123456789"); });
        for (int i = 0; i < steps && process.isAlive(); ++i) {
            process.step();
        }
        file->close();
        return process.isAlive();
    }

    /** Lets the next process rotate often enough to reach each gap. */
    void goOn(std::size_t maxFiles, int rotations)
    {
        open(10, maxFiles);
        for (int i = 0; i < rotations; ++i) {
            file->log("next number " + std::to_string(i));
        }
        EXPECT_EQ(path, file->getPath()) << err.take();
        file->close();
    }

    static std::size_t occurrences(const String& line, const String& text)
    {
        std::size_t count = 0;
        for (std::size_t at = text.find(line); at != String::npos; at = text.find(line, at + 1)) {
            ++count;
        }
        return count;
    }

    static constexpr std::size_t OLD_FILES = 3;
};

TEST_F(RotationKillTest, NoOldFileIsLostWithoutAMaximum)
{
    int steps = 0;
    for (bool wasKilled = true; wasKilled && !HasFailure(); ++steps) {
        SCOPED_TRACE(steps);
        wasKilled = rotateUpTo(steps, 0);
        goOn(0, 3);
        const String text = wholeLog(path);
        for (const String& line :
             {String("old 0\n"), String("old 1\n"), String("old 2\n"), String("live\n"),
              String("next number 0\n"), String("next number 1\n"), String("next number 2\n")}) {
            EXPECT_EQ(1u, occurrences(line, text)) << line << " in " << text;
        }
        EXPECT_GE(1u, occurrences("0123456789\n", text));
    }
    EXPECT_GT(steps, 20) << "hardly a system call was seen";
    RecordProperty("steps", steps);
}

TEST_F(RotationKillTest, NoFileButTheOldestIsLostWithAMaximum)
{
    int steps = 0;
    for (bool wasKilled = true; wasKilled && !HasFailure(); ++steps) {
        SCOPED_TRACE(steps);
        wasKilled = rotateUpTo(steps, OLD_FILES);
        // If the maximum is reached, the first rotation of the next process removes another file.
        const bool isFull = oldNumbers(path).size() >= OLD_FILES;
        const String before = wholeLog(path);
        goOn(OLD_FILES, 1);
        const String text = wholeLog(path);
        for (const String& line : {String("old 0\n"), String("live\n"), String("next number 0\n")}) {
            EXPECT_EQ(1u, occurrences(line, text)) << line << " in " << text;
        }
        EXPECT_EQ(1u, occurrences("old 1\n", before));
        EXPECT_EQ(1u, occurrences("old 0\n", before));
        if (!isFull) {
            EXPECT_EQ(1u, occurrences("old 1\n", text)) << text;
        }
        EXPECT_LE(namesIn(folder.path()).size(), OLD_FILES + 1);
    }
    EXPECT_GT(steps, 20) << "hardly a system call was seen";
}

}
