#include <dalnim/sys/System.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <future>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <netdb.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::sys::InitLock;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::System;
using com::kor::dal::nim::sys::system_error;

TEST(System, TypesHaveFixedWidths)
{
    EXPECT_TRUE((std::is_same_v<std::int32_t, System::ProcID_t>));
    EXPECT_TRUE((std::is_same_v<std::int32_t, System::ThreadID_t>));
    EXPECT_TRUE((std::is_same_v<std::int64_t, System::TimeUS_t>));
    EXPECT_TRUE((std::is_same_v<std::int64_t, System::TimeMS_t>));
    EXPECT_TRUE((std::is_same_v<std::int64_t, System::TimeDCE_t>));
    EXPECT_TRUE((std::is_same_v<std::vector<String>, System::StringVector>));
    EXPECT_STREQ("System", System::CLASS_NAME);
    EXPECT_EQ(0, System::FULL_PROCESS_PATH);
    EXPECT_EQ(1, System::EXECUTABLE_NAME_ONLY);
    EXPECT_EQ(2, System::DIRECTORY_PATH_ONLY);
}

TEST(System, HostNameIsInLowerCase)
{
    char name[512] = "";
    ASSERT_EQ(0, gethostname(name, sizeof name));
    for (char& c : name) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    EXPECT_EQ(name, System::hostname());
    EXPECT_NE("", System::hostname());
}

TEST(System, HostAddressesAreNumeric)
{
    for (const String& address : System::hostIpAddress()) {
        addrinfo hints = {};
        hints.ai_flags = AI_NUMERICHOST;
        addrinfo* parsed = nullptr;
        EXPECT_EQ(0, getaddrinfo(address.c_str(), nullptr, &hints, &parsed)) << address;
        if (parsed != nullptr) {
            freeaddrinfo(parsed);
        }
    }
}

TEST(System, UnknownAddressFamilyThrows)
{
    const StackTrack track("caller()", 5);
    try {
        System::hostIpAddress(99);
        FAIL();
    } catch (const system_error& failure) {
        EXPECT_EQ(-6, failure.error());
        EXPECT_STREQ("si_getaddrinfo failed. family = 99 rc = -6", failure.what());
        ASSERT_EQ(2U, failure.trace().size());
        EXPECT_EQ(0U, failure.trace()[0].find("com.kor.dal.nim.sys.System.hostIpAddress():"));
        EXPECT_EQ("caller():5", failure.trace()[1]);
    }
    try {
        System::hostIpAddress(-1);
        FAIL();
    } catch (const system_error& failure) {
        EXPECT_STREQ("si_getaddrinfo failed. family = -1 rc = -6", failure.what());
    }
}

TEST(System, ProcessIdIsTheChildsAfterFork)
{
    EXPECT_EQ(getpid(), System::procId());
    const pid_t parent = System::procId();
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        _exit(System::procId() == getpid() && System::procId() != parent ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(parent, System::procId());
}

TEST(System, ThreadIdIsTheKernelsAndUnique)
{
    EXPECT_EQ(syscall(SYS_gettid), System::threadId());
    EXPECT_EQ(System::threadId(), System::threadId());
    System::ThreadID_t of_other = 0;
    long of_kernel = 0;
    std::thread([&] {
        of_other = System::threadId();
        of_kernel = syscall(SYS_gettid);
    }).join();
    EXPECT_EQ(of_kernel, of_other);
    EXPECT_NE(System::threadId(), of_other);
}

TEST(System, ClocksAgree)
{
    const System::TimeUS_t first = System::timeMicros();
    const System::TimeMS_t millis = System::timeMillis();
    const System::TimeMS_t time = System::time();
    const System::TimeDCE_t dce = System::dceTime();
    const System::TimeUS_t last = System::timeMicros();
    const auto seconds = static_cast<System::TimeUS_t>(::time(nullptr));

    EXPECT_LE(first / 1000, millis);
    EXPECT_LE(millis, time);
    EXPECT_LE(time, last / 1000);
    EXPECT_LE(first * 10 + 122192928000000000, dce);
    EXPECT_LE(dce, last * 10 + 122192928000000009);
    EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(last) / 1e6, 2.0);
}

TEST(System, SleepLastsForTheGivenTime)
{
    const System::TimeUS_t before = System::timeMicros();
    System::sleep(20);
    EXPECT_GE(System::timeMicros() - before, 20000);
    System::sleep(0);
}

TEST(System, UtcTimeIsBrokenDown)
{
    tm parts = {};
    EXPECT_EQ(&parts, &System::utctime(parts, 1794668720));
    EXPECT_EQ(2026 - 1900, parts.tm_year);
    EXPECT_EQ(10, parts.tm_mon);
    EXPECT_EQ(14, parts.tm_mday);
    EXPECT_EQ(15, parts.tm_hour);
    EXPECT_EQ(5, parts.tm_min);
    EXPECT_EQ(20, parts.tm_sec);
    EXPECT_EQ(6, parts.tm_wday);

    System::utctime(parts, -1);
    EXPECT_EQ(69, parts.tm_year);
    EXPECT_EQ(59, parts.tm_sec);
}

TEST(System, LocalTimeIsInTheTimeZoneOfTheProcess)
{
    tm parts = {};
    EXPECT_EQ(&parts, &System::localtime(parts, 1794668720));
    EXPECT_EQ(1794668720, mktime(&parts));
}

TEST(System, YearOutOfRangeThrows)
{
    tm parts = {};
    const time_t beyond = std::numeric_limits<time_t>::max();
    try {
        System::utctime(parts, beyond);
        FAIL();
    } catch (const system_error& failure) {
        EXPECT_EQ(38, failure.error());
        EXPECT_STREQ("Function not implemented", failure.what());
        ASSERT_EQ(1U, failure.trace().size());
        EXPECT_EQ(0U, failure.trace()[0].find("com.kor.dal.nim.sys.System.utctime():"));
    }
    try {
        System::localtime(parts, beyond);
        FAIL();
    } catch (const system_error& failure) {
        EXPECT_EQ(38, failure.error());
        ASSERT_EQ(1U, failure.trace().size());
        EXPECT_EQ(0U, failure.trace()[0].find("com.kor.dal.nim.sys.System.localtime():"));
    }
}

TEST(System, ProcessPathIsThatOfThisProgram)
{
    char path[4096] = "";
    ASSERT_LT(0, readlink("/proc/self/exe", path, sizeof path - 1));
    const String whole = path;
    const std::size_t last = whole.rfind('/');
    EXPECT_EQ(whole, System::getProcessPath(System::FULL_PROCESS_PATH));
    EXPECT_EQ(whole.substr(0, last), System::getProcessPath(System::DIRECTORY_PATH_ONLY));
    EXPECT_EQ(whole.substr(last + 1), System::getProcessPath(System::EXECUTABLE_NAME_ONLY));
    EXPECT_EQ(whole, System::getProcessPath(static_cast<System::PROCESS_PATH_OPT>(3)));
    EXPECT_EQ(whole, System::getProcessPath(static_cast<System::PROCESS_PATH_OPT>(-1)));
}

TEST(System, CachedValuesNeedNoLock)
{
    const String name = System::hostname();
    const String path = System::getProcessPath(System::FULL_PROCESS_PATH);

    InitLock lock(true);
    auto answer = std::async(std::launch::async, [] {
        return System::hostname() + System::getProcessPath(System::FULL_PROCESS_PATH);
    });
    const bool waits = answer.wait_for(std::chrono::seconds(20)) != std::future_status::ready;
    lock.release();
    EXPECT_FALSE(waits);
    EXPECT_EQ(name + path, answer.get());
}

}
