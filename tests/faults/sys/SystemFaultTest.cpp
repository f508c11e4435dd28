#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "support/InChildProcess.hpp"

#include <dalnim/sys/System.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <thread>
#include <vector>

#include <netdb.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace faults;
using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::sys::System;
using com::kor::dal::nim::sys::system_error;
using support::inChildProcess;

TEST(SystemFault, TimesThatCannotBeConvertedThrow)
{
    tm result = {};
    EXPECT_EQ("38 Function not implemented",
              failureOf(Call::LOCALTIME, EOVERFLOW, [&] { System::localtime(result, 0); }));
    // Outside the range that the library converts itself.
    EXPECT_EQ("38 Function not implemented",
              failureOf(Call::GMTIME, EOVERFLOW, [&] { System::utctime(result, -1); }));
    EXPECT_EQ(&result, &System::localtime(result, 0));
    EXPECT_EQ(&result, &System::utctime(result, -1));
    EXPECT_EQ(69, result.tm_year);
}

TEST(SystemFault, ClockThatCannotBeReadReturnsTheEpoch)
{
    Fault fault(Call::CLOCK_GETTIME, EINVAL);
    const auto micros = System::timeMicros();
    const auto dce = System::dceTime();
    fault.disarm();
    EXPECT_EQ(0, micros);
    EXPECT_EQ(122192928000000000, dce);
}

TEST(SystemFault, ResolverFailureThrows)
{
    System::hostname();
    for (const int code : {EAI_AGAIN, EAI_FAIL, EAI_MEMORY, EAI_NONAME}) {
        EXPECT_EQ(std::to_string(code) + " si_getaddrinfo failed. family = 2 rc = " + std::to_string(code),
                  failureOf(Call::GETADDRINFO, code, [] { System::hostIpAddress(AF_INET); }));
    }
}

TEST(SystemFault, AddressesWithoutANumericFormAreOmitted)
{
    addrinfo hints = {};
    addrinfo* found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(System::hostname().c_str(), nullptr, &hints, &found) != 0) {
        GTEST_SKIP() << "this host does not know itself";
    }
    freeaddrinfo(found);
    const StringVector all = System::hostIpAddress();
    StringVector left;
    Fault fault(Call::GETNAMEINFO, EAI_OVERFLOW, 1, 1);
    EXPECT_EQ("", failureUnder(fault, [&] { left = System::hostIpAddress(); }));
    EXPECT_EQ(StringVector(all.begin() + 1, all.end()), left);
}

TEST(SystemFault, AddressesAreCompleteOrThrow)
{
    const String host = System::hostname();
    WalkOptions options;
    options.named = [](const std::exception& failure) {
        return dynamic_cast<const system_error*>(&failure) != nullptr;
    };
    StringVector all;
    try {
        all = System::hostIpAddress();
    } catch (const system_error&) {
        GTEST_SKIP() << "this host does not know itself";
    }
    walkAllocations(
        [] { return StringVector(); }, [](StringVector& found) { System::hostIpAddress().swap(found); },
        [&](StringVector& found, bool done) { EXPECT_EQ(done ? all : StringVector(), found); }, options);
}

// Values that a process determines once are tested in a process that has not determined them yet.

TEST(SystemFaultDeathTest, FailedHostNameIsLookedUpAgain)
{
    FAULTS_IN_NEW_PROCESS([] {
        EXPECT_EQ("1 Operation not permitted",
                  failureOf(Call::GETHOSTNAME, EFAULT, [] { System::hostname(); }));
        EXPECT_EQ("1 Operation not permitted",
                  failureOf(Call::GETHOSTNAME, EFAULT, [] { System::hostIpAddress(); }));
        EXPECT_NE("", System::hostname());
        EXPECT_EQ("", failureOf(Call::GETHOSTNAME, EFAULT, [] { System::hostname(); }));
    });
}

TEST(SystemFaultDeathTest, HostNameIsFoundWhileLookupsOfOtherThreadsFail)
{
    FAULTS_IN_NEW_PROCESS([] {
        constexpr int THREADS = 8;
        std::atomic<int> missing{THREADS};
        std::vector<std::thread> threads;
        std::vector<String> results(THREADS);
        for (int number = 0; number < THREADS; ++number) {
            threads.emplace_back([&missing, &result = results[static_cast<std::size_t>(number)], number] {
                --missing;
                while (missing.load() != 0) {
                    std::this_thread::yield();
                }
                if (number % 2 == 0) {
                    result = failureOf(Call::GETHOSTNAME, EFAULT, [] { System::hostname(); });
                } else {
                    result = System::hostname();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (std::size_t number = 0; number < results.size(); ++number) {
            const String& result = results[number];
            if (number % 2 == 0) {
                EXPECT_TRUE(result.empty() || result == "1 Operation not permitted") << result;
            } else {
                EXPECT_EQ(System::hostname(), result);
                EXPECT_NE("", result);
            }
        }
    });
}

TEST(SystemFaultDeathTest, HostNameIsCompleteOrThrows)
{
    FAULTS_IN_NEW_PROCESS([] {
        char name[512];
        ASSERT_EQ(0, gethostname(name, sizeof name));
        String lower(name);
        for (char& c : lower) {
            c = static_cast<char>(std::tolower(c));
        }
        walkAllocations([] { return String(); }, [](String& found) { System::hostname().swap(found); },
                        [&](String& found, bool done) { EXPECT_EQ(done ? lower : String(), found); });
    });
}

const String NO_DIRECTORY =
    "2 Cannot determine directory of process <unknown>. Do ONE of the following: (1) start process with "
    "absolute path. (2) run process from current dir (assuming no 'chdir' has occurred). (3) add process "
    "relative directory to PATH variable if it can be found relative to current directory. (4) add process "
    "absolute directory to PATH variable. ";

TEST(SystemFaultDeathTest, ProcessPathThatCannotBeDeterminedThrowsOnce)
{
    FAULTS_IN_NEW_PROCESS([] {
        Fault link(Call::READLINK, ENOENT);
        EXPECT_EQ(NO_DIRECTORY,
                  failureOf(Call::DLOPEN, ENOENT, [] { System::getProcessPath(System::FULL_PROCESS_PATH); }));
        link.disarm();
        // The lock is free for another thread.
        onNewThread([] {
            EXPECT_EQ("", System::getProcessPath(System::FULL_PROCESS_PATH));
            EXPECT_EQ("", System::getProcessPath(System::EXECUTABLE_NAME_ONLY));
            EXPECT_EQ("", System::getProcessPath(System::DIRECTORY_PATH_ONLY));
        });
    });
}

/** The result of determining the path of the process when the n-th allocation fails. */
enum PathStatus { FOUND, FOUND_LATER, EMPTY_LATER, EMPTY, ANOTHER_FAILURE, FOUND_WITHOUT_A_FAULT };

int findPath(unsigned int n)
{
    String found;
    Fault fault(Call::NEW, ENOMEM, n, 1);
    const Outcome outcome =
        outcomeUnder(fault, [&] { System::getProcessPath(System::FULL_PROCESS_PATH).swap(found); });
    switch (outcome.kind) {
    case Outcome::DONE:
        return found.empty() ? EMPTY : outcome.faults == 0 ? FOUND_WITHOUT_A_FAULT : FOUND;
    case Outcome::NO_MEMORY:
        onNewThread([&found] { System::getProcessPath(System::FULL_PROCESS_PATH).swap(found); });
        return found.empty() ? EMPTY_LATER : FOUND_LATER;
    default:
        return ANOTHER_FAILURE;
    }
}

TEST(SystemFaultDeathTest, ProcessPathIsFoundOrRunsOutOfMemory)
{
    FAULTS_IN_NEW_PROCESS([] {
        int status = FOUND;
        for (unsigned int n = 1; status != FOUND_WITHOUT_A_FAULT; ++n) {
            ASSERT_LT(n, 100u);
            // In a child each time, since a process determines its path only once.
            status = WEXITSTATUS(inChildProcess([n] { ::_exit(findPath(n)); }));
            EXPECT_TRUE(status == FOUND || status == FOUND_LATER || status == EMPTY_LATER
                        || status == FOUND_WITHOUT_A_FAULT)
                << status << " at allocation " << n;
        }
    });
}

}
