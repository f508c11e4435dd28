// Reports of crashes are installed in servers that may be short of memory or descriptors.

#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/sys/CrashReport.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <optional>

#include <support/Sanitizers.hpp>

namespace {

using namespace faults;
using com::kor::dal::nim::sys::CrashReport;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::sys::internal::ThreadState;

bool hasAlternateStack()
{
    stack_t stack = {};
    return sigaltstack(nullptr, &stack) == 0 && (stack.ss_flags & SS_DISABLE) == 0;
}

/** In one test, since the reports can be installed only once. */
TEST(CrashReportFault, RefusedMemoryPreventsNeitherThreadsNorALaterInstallation)
{
    if (support::UNDER_THREAD_SANITIZER || support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the sanitizer has an alternate stack and an mmap of its own";
    }
    for (const Call call : {Call::MMAP, Call::OPEN}) {
        Fault fault(call, ENOMEM);
        try {
            CrashReport::install();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const system_error& error) {
            EXPECT_EQ(12, error.error());
        }
        EXPECT_GE(fault.failed(), 1U);
        EXPECT_FALSE(CrashReport::isInstalled());
    }
    struct sigaction action = {};
    sigaction(SIGSEGV, nullptr, &action);
    EXPECT_EQ(SIG_DFL, action.sa_handler);

    CrashReport::install();
    EXPECT_TRUE(CrashReport::isInstalled());
    EXPECT_TRUE(hasAlternateStack());
    onNewThread([] {
        Fault fault(Call::MMAP, ENOMEM);
        const StackTrack track("f()", 1);
        EXPECT_EQ(1U, fault.failed());
        EXPECT_EQ(1U, ThreadState::current().where.size());
        EXPECT_FALSE(hasAlternateStack());
    });
    onNewThread([] {
        ThreadState::current();
        EXPECT_TRUE(hasAlternateStack());
    });
}

/** As a thread that has no memory for its state at its first use. */
TEST(CrashReportFault, StateIsCompleteOrThrowsAlsoWithAlternateStacks)
{
    if (support::UNDER_THREAD_SANITIZER || support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the sanitizer handles these signals itself";
    }
    CrashReport::install();
    EXPECT_GE(
        walkAllocations([] { return std::optional<int>(); },
                        [](std::optional<int>& tid) { tid = ThreadState::current().tid; },
                        [](const std::optional<int>& tid, bool done) { EXPECT_EQ(done, tid.has_value()); }),
        2U);
}

}
