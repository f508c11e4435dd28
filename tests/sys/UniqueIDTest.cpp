#include <dalnim/sys/UniqueID.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <thread>
#include <type_traits>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using com::kor::dal::nim::sys::UniqueID;

TEST(UniqueID, TypesHaveFixedWidths)
{
    EXPECT_TRUE((std::is_same_v<std::uint32_t, UniqueID::UInt32_t>));
    EXPECT_TRUE((std::is_same_v<std::uint64_t, UniqueID::UInt64_t>));
    EXPECT_TRUE((std::is_same_v<std::uint32_t, decltype(UniqueID::nextUid32())>));
    EXPECT_TRUE((std::is_same_v<std::uint64_t, decltype(UniqueID::nextUid64())>));
    EXPECT_TRUE(noexcept(UniqueID::nextUid32()));
    EXPECT_TRUE(noexcept(UniqueID::nextUid64()));
    EXPECT_STREQ("UniqueID", UniqueID::CLASS_NAME);
}

TEST(UniqueID, EachSeriesIncrementsByOne)
{
    const std::uint32_t first32 = UniqueID::nextUid32();
    const std::uint64_t first64 = UniqueID::nextUid64();
    EXPECT_EQ(static_cast<std::uint32_t>(first32 + 1), UniqueID::nextUid32());
    EXPECT_EQ(static_cast<std::uint32_t>(first32 + 2), UniqueID::nextUid32());
    EXPECT_EQ(first64 + 1, UniqueID::nextUid64());
    EXPECT_EQ(first64 + 2, UniqueID::nextUid64());
    EXPECT_EQ(static_cast<std::uint32_t>(first32 + 3), UniqueID::nextUid32());
}

TEST(UniqueID, ChildOfAForkContinuesTheSeries)
{
    const std::uint32_t before32 = UniqueID::nextUid32();
    const std::uint64_t before64 = UniqueID::nextUid64();
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        const bool goes_on = UniqueID::nextUid32() == static_cast<std::uint32_t>(before32 + 1)
                             && UniqueID::nextUid64() == before64 + 1;
        _exit(goes_on ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

TEST(UniqueID, IdsOfManyThreadsAreUnique)
{
    constexpr std::size_t THREADS = 4;
    constexpr std::size_t NUMBERS = 5000;
    const std::uint32_t before32 = UniqueID::nextUid32();
    const std::uint64_t before64 = UniqueID::nextUid64();

    std::atomic<std::size_t> ready{0};
    std::vector<std::vector<std::uint32_t>> drawn32(THREADS);
    std::vector<std::vector<std::uint64_t>> drawn64(THREADS);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (ready.load() != THREADS) {
                std::this_thread::yield();
            }
            for (std::size_t i = 0; i < NUMBERS; ++i) {
                drawn32[t].push_back(UniqueID::nextUid32());
                drawn64[t].push_back(UniqueID::nextUid64());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    // The distances from the number drawn before: 1 to THREADS * NUMBERS, each once.
    std::set<std::uint32_t> all32;
    std::set<std::uint64_t> all64;
    for (std::size_t t = 0; t < THREADS; ++t) {
        for (const std::uint32_t number : drawn32[t]) {
            all32.insert(number - before32);
        }
        for (const std::uint64_t number : drawn64[t]) {
            all64.insert(number - before64);
        }
    }
    EXPECT_EQ(20000U, all32.size());
    EXPECT_EQ(1U, *all32.begin());
    EXPECT_EQ(20000U, *all32.rbegin());
    EXPECT_EQ(20000U, all64.size());
    EXPECT_EQ(1U, *all64.begin());
    EXPECT_EQ(20000U, *all64.rbegin());
}

}
