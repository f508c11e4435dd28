#ifndef DALNIM_TESTS_SUPPORT_INCHILDPROCESS_HPP
#define DALNIM_TESTS_SUPPORT_INCHILDPROCESS_HPP

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

/** Runs `body` in a child process. Returns its wait status, which is 0 if all expectations are met. */
template <class Body>
int inChildProcess(Body body)
{
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        // Kills the child with its parent, so that it does not outlive a test that is killed.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        std::fflush(nullptr);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    return status;
}

}

#endif
