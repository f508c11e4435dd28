// Several threads share one object that is counted atomically.

#include <dalnim/mem/RcoRef.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "Counted.hpp"

namespace {

using memtest::ConstRcoRef;
using memtest::Counted;
using memtest::RcoRef;

constexpr int THREADS = 8;

/** Runs a function on `THREADS` threads that start simultaneously, with the index of each. */
template <class Work>
void together(Work work)
{
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < THREADS; ++number) {
        threads.emplace_back([&ready, &work, number] {
            ++ready;
            while (ready.load() != THREADS) {
                std::this_thread::yield();
            }
            work(number);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(SharedObject, CountsReferencesOfAllThreads)
{
    int destroyed = 0;
    RcoRef<Counted> ref(new Counted(&destroyed));
    const ConstRcoRef<Counted> shared(ref);
    together([&shared](int number) {
        for (int i = 0; i < 5000; ++i) {
            const ConstRcoRef<Counted> copy(shared);
            ConstRcoRef<Counted> moved;
            moved = copy;
            if ((i + number) % 2 == 0) {
                moved = nullptr;
            }
        }
    });
    EXPECT_EQ(2U, shared->refCount(false));
    EXPECT_EQ(0, destroyed);
}

TEST(SharedObject, CountsCallsOfAcquireRefAndReleaseRef)
{
    int destroyed = 0;
    const Counted* const object = new Counted(&destroyed);
    object->acquireRef();
    together([object](int number) {
        for (int i = 0; i < 5000; ++i) {
            object->acquireRef();
        }
        for (int i = 0; i < 5000; ++i) {
            if (number % 2 == 0) {
                object->releaseRef();
            } else {
                object->releaseRef(std::nothrow);
            }
        }
    });
    EXPECT_EQ(1U, object->refCount(false));
    object->releaseRef();
    EXPECT_EQ(1, destroyed);
}

TEST(SharedObject, IsDeletedOnceByTheLastThread)
{
    for (int round = 0; round < 300; ++round) {
        int destroyed = 0;
        std::vector<RcoRef<Counted>> refs(THREADS, RcoRef<Counted>(new Counted(&destroyed)));
        together([&refs](int number) {
            RcoRef<Counted>& mine = refs[static_cast<std::size_t>(number)];
            if (number % 2 == 0) {
                mine = nullptr;
            } else {
                mine.clear();
            }
        });
        ASSERT_EQ(1, destroyed);
    }
}

TEST(SharedObject, IsDeletedOnceAtItsBias)
{
    for (int round = 0; round < 300; ++round) {
        int destroyed = 0;
        Counted* const object = new Counted(&destroyed);
        for (int i = 0; i < THREADS + 3; ++i) {
            object->acquireRef();
        }
        object->refBias(3U);
        together([object](int) { object->releaseRef(); });
        ASSERT_EQ(1, destroyed);
    }
}

TEST(SharedObject, DestructorSeesTheWritesOfAllThreads)
{
    class Tallied : public Counted
    {
    public:
        explicit Tallied(long* sum) : sum_(sum) {}
        ~Tallied() override
        {
            for (const long part : parts) {
                *sum_ += part;
            }
        }
        long parts[THREADS] = {};

    private:
        long* sum_;
    };
    long sum = 0;
    std::vector<RcoRef<Tallied>> refs(THREADS, RcoRef<Tallied>(new Tallied(&sum)));
    together([&refs](int number) {
        RcoRef<Tallied> mine(std::move(refs[static_cast<std::size_t>(number)]));
        for (int i = 0; i < 1000; ++i) {
            mine->parts[number] += number;
        }
    });
    EXPECT_EQ(28000L, sum);
}

// Copy on write, synchronised only by the count. The thread sanitizer reports a load that does not acquire.
TEST(SharedObject, SoleOwnerByTheCountMayChangeTheObject)
{
    for (int round = 0; round < 100; ++round) {
        RcoRef<Counted> mine(new Counted);
        std::vector<RcoRef<Counted>> others(3, mine);
        std::vector<std::thread> threads;
        for (RcoRef<Counted>& other : others) {
            threads.emplace_back([&other] {
                EXPECT_EQ(0, other->value);
                other.clear();
            });
        }
        while (mine->refCount() != 1) {
            std::this_thread::yield();
        }
        mine->value = 1;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}

}
