#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/** Otherwise, hosts of a test that was killed would keep running, and disturb later measurements. */
TEST(ChildProcessTest, IsKilledWithItsParent)
{
    const support::ScratchFolder scratch;
    // Makes this process the new parent of orphaned descendants.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t test = fork();
    if (test == 0) {
        const support::ChildProcess child({"/bin/sleep", "30"}, scratch.path());
        const pid_t process = child.process();
        static_cast<void>(!write(ends[1], &process, sizeof process));
        pause();
        _exit(1);
    }
    pid_t process = -1;
    ASSERT_EQ(read(ends[0], &process, sizeof process), static_cast<ssize_t>(sizeof process));
    kill(test, SIGKILL);
    int status = 0;
    EXPECT_EQ(waitpid(test, &status, 0), test);
    EXPECT_EQ(waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 0), 0);
    close(ends[0]);
    close(ends[1]);
}
