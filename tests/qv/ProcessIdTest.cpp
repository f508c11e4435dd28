// The process ID in child processes, if the kernel does not clear the page of the cached one in them.

#include <qv/pmx/host.h>

#include <support/InChildProcess.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <qv/pmx/src/thread_self.hpp>

/** Replaces the function of the library: these tests use no thread IDs. */
void qv::forgetThreadSelf() {}

namespace {

enum class Requests {
    /** Are passed on to the kernel. */
    OBEYED,
    /** Fail. */
    REFUSED,
    /** Succeed without effect. */
    IGNORED,
    /** Those for a cleared page fail, as on old kernels. */
    UNKNOWN,
    /** Those for a cleared page succeed without effect. */
    PRETENDED
};

Requests requests = Requests::OBEYED;
int requestCount = 0;

int refuse()
{
    errno = EINVAL;
    return -1;
}

}

/** Replaces the function of the C library. */
extern "C" int madvise(void* address, size_t size, int request) noexcept
{
    ++requestCount;
    switch (requests) {
    case Requests::REFUSED:
        return refuse();
    case Requests::IGNORED:
        return 0;
    case Requests::UNKNOWN:
        if (request == MADV_WIPEONFORK) {
            return refuse();
        }
        break;
    case Requests::PRETENDED:
        if (request == MADV_WIPEONFORK) {
            return 0;
        }
        break;
    case Requests::OBEYED:
        break;
    }
    return static_cast<int>(syscall(SYS_madvise, address, size, request));
}

namespace {

/** Runs the checks in a process that has not used its ID before. */
class ProcessIdTest : public testing::TestWithParam<Requests>
{};

TEST_P(ProcessIdTest, IsThatOfTheCallingProcess)
{
    EXPECT_EQ(support::inChildProcess([] {
                  requests = GetParam();
                  EXPECT_EQ(qv_si_getpid(), getpid());
                  EXPECT_GE(requestCount, 1);
                  EXPECT_EQ(support::inChildProcess([] {
                                EXPECT_EQ(qv_si_getpid(), getpid());
                                EXPECT_EQ(qv_si_getpid(), getpid());
                            }),
                            0);
                  EXPECT_EQ(qv_si_getpid(), getpid());
              }),
              0);
}

TEST_P(ProcessIdTest, FirstUseKeepsErrno)
{
    EXPECT_EQ(support::inChildProcess([] {
                  requests = GetParam();
                  errno = ENOTDIR;
                  qv_si_getpid();
                  EXPECT_EQ(errno, ENOTDIR);
                  EXPECT_GE(requestCount, 1);
              }),
              0);
}

std::string nameOf(const testing::TestParamInfo<Requests>& tested)
{
    const char* const names[] = {"Obeyed", "Refused", "Ignored", "Unknown", "Pretended"};
    return names[static_cast<int>(tested.param)];
}

INSTANTIATE_TEST_SUITE_P(RequestsToClearAPage, ProcessIdTest,
                         testing::Values(Requests::OBEYED, Requests::REFUSED, Requests::IGNORED,
                                         Requests::UNKNOWN, Requests::PRETENDED),
                         nameOf);

}
