#include <qv/pmx/atomic.h>

#include <gtest/gtest.h>

#include <limits>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

static_assert(std::is_same_v<si_atomic_t, si_int32_t> && sizeof(si_atomic_t) == 4);
static_assert(noexcept(qv_si_atomic_increment(nullptr)) && noexcept(qv_si_atomic_decrement(nullptr)));

TEST(Atomic, ReturnsTheNewValue)
{
    si_atomic_t counter = 5;
    EXPECT_EQ(qv_si_atomic_increment(&counter), 6);
    EXPECT_EQ(qv_si_atomic_increment(&counter), 7);
    EXPECT_EQ(qv_si_atomic_decrement(&counter), 6);
    EXPECT_EQ(counter, 6);
}

TEST(Atomic, DecrementOfZeroIsNegative)
{
    si_atomic_t counter = 0;
    EXPECT_EQ(qv_si_atomic_decrement(&counter), -1);
    EXPECT_EQ(qv_si_atomic_increment(&counter), 0);
}

TEST(Atomic, WrapsAroundOnOverflow)
{
    si_atomic_t counter = 2147483647;
    EXPECT_EQ(qv_si_atomic_increment(&counter), -2147483647 - 1);
    EXPECT_EQ(qv_si_atomic_decrement(&counter), 2147483647);
}

TEST(Atomic, ConcurrentChangesAreNotLost)
{
    si_atomic_t counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&counter] {
            for (int k = 0; k < 10000; ++k) {
                qv_si_atomic_increment(&counter);
                qv_si_atomic_increment(&counter);
                qv_si_atomic_decrement(&counter);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 40000);
}

TEST(Atomic, ThreadThatReachesZeroSeesWritesOfOthers)
{
    // Each thread writes its own element, without synchronisation, before its decrement; the thread that
    // reaches 0 reads all of them. The thread sanitizer reports a missing order.
    for (int round = 0; round < 100; ++round) {
        si_atomic_t references = 2;
        int written[2] = {0, 0};
        int sum = 0;
        const auto hold = [&](int index) {
            written[index] = index + 1;
            if (qv_si_atomic_decrement(&references) == 0) {
                sum = written[0] + written[1];
            }
        };
        std::thread other(hold, 1);
        hold(0);
        other.join();
        ASSERT_EQ(sum, 3);
    }
}

}
