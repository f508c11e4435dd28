#include <dalnim/mt/CriticalSection.hpp>

#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <thread>
#include <type_traits>
#include <vector>

#include <qv/Threads.hpp>

namespace {

using com::kor::dal::nim::mt::CriticalSection;
using com::kor::dal::nim::mt::MutexHolder;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using testing::MatchesRegex;

static_assert(!std::is_copy_constructible_v<CriticalSection>);
static_assert(!std::is_copy_assignable_v<CriticalSection>);
static_assert(!std::is_move_constructible_v<CriticalSection>);
static_assert(!std::is_polymorphic_v<CriticalSection>, "it makes no virtual call");
static_assert(sizeof(CriticalSection) == sizeof(si_mutex_t), "it embeds its mutex");
static_assert(
    std::is_same_v<const CriticalSection&, decltype(std::declval<const CriticalSection&>().acquire())>);
static_assert(std::is_same_v<bool, decltype(std::declval<const CriticalSection&>().release(std::nothrow))>);
static_assert(std::is_same_v<bool, decltype(std::declval<const CriticalSection&>().request())>);
static_assert(noexcept(std::declval<const CriticalSection&>().release(std::nothrow)));

template <class Call>
auto onOtherThread(Call call)
{
    decltype(call()) result{};
    std::thread([&] { result = call(); }).join();
    return result;
}

bool isFree(const CriticalSection& section)
{
    return onOtherThread([&section] { return section.request() && section.release(std::nothrow); });
}

int numberOf(void (*call)(const CriticalSection&), const CriticalSection& section)
{
    try {
        call(section);
    } catch (const system_error& error) {
        return error.error();
    }
    return 0;
}

void acquire(const CriticalSection& section)
{
    section.acquire();
}

void release(const CriticalSection& section)
{
    section.release();
}

TEST(CriticalSection, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("CriticalSection", CriticalSection::CLASS_NAME);
}

enum class Kind { DEFAULT, PLAIN, RECURSIVE };

class EverySection : public testing::TestWithParam<Kind>
{
protected:
    const CriticalSection byDefault{};
    const CriticalSection byChoice{GetParam() == Kind::RECURSIVE};
    const CriticalSection& section = GetParam() == Kind::DEFAULT ? byDefault : byChoice;
};

TEST_P(EverySection, IsHeldByOneThread)
{
    EXPECT_TRUE(isFree(section));
    EXPECT_EQ(&section, &section.acquire());
    EXPECT_FALSE(onOtherThread([this] { return section.request(); }));
    section.release();
    EXPECT_TRUE(isFree(section));
}

TEST_P(EverySection, AcquireWaitsForTheOwner)
{
    section.acquire();
    qvtest::Caller other([this] {
        section.acquire();
        section.release();
    });
    EXPECT_TRUE(other.awaitAsleep());
    section.release();
    other.join();
}

TEST_P(EverySection, RequestAcquiresTheLock)
{
    EXPECT_TRUE(section.request());
    EXPECT_FALSE(isFree(section));
    EXPECT_TRUE(section.release(std::nothrow));
    EXPECT_TRUE(isFree(section));
}

TEST_P(EverySection, ReleaseWithoutAnAcquireFails)
{
    EXPECT_FALSE(section.release(std::nothrow));
    try {
        section.release();
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(1, error.error());
        EXPECT_STREQ("Operation not permitted", error.what());
    }
    EXPECT_TRUE(isFree(section));
}

TEST_P(EverySection, ReleaseByAnotherThreadFails)
{
    section.acquire();
    EXPECT_FALSE(onOtherThread([this] { return section.release(std::nothrow); }));
    EXPECT_EQ(1, onOtherThread([this] { return numberOf(release, section); }));
    EXPECT_FALSE(isFree(section));
    section.release();
}

TEST_P(EverySection, ExcludesManyThreads)
{
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, &counter] {
            for (int i = 0; i < 2000; ++i) {
                if (i % 2 == 0) {
                    const MutexHolder<CriticalSection> holder(section.acquire());
                    ++counter;
                } else {
                    while (!section.request()) {
                        std::this_thread::yield();
                    }
                    ++counter;
                    section.release();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(8000L, counter);
}

TEST_P(EverySection, NamesTheFunctionInTheTrace)
{
    const StackTrack track("caller()", 0);
    try {
        section.release();
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        ASSERT_EQ(2U, error.trace().size());
        EXPECT_THAT(error.trace()[0],
                    MatchesRegex("com\\.kor\\.dal\\.nim\\.mt\\.CriticalSection\\.release\\(\\):[0-9]+"));
        EXPECT_EQ("caller()", error.trace()[1]);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, EverySection, testing::Values(Kind::DEFAULT, Kind::PLAIN, Kind::RECURSIVE));

class PlainSection : public EverySection
{};

TEST_P(PlainSection, SecondAcquireByTheOwnerFails)
{
    section.acquire();
    EXPECT_FALSE(section.request());
    try {
        section.acquire();
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(35, error.error());
        EXPECT_STREQ("Resource deadlock avoided", error.what());
        ASSERT_EQ(1U, error.trace().size());
        EXPECT_THAT(error.trace()[0],
                    MatchesRegex("com\\.kor\\.dal\\.nim\\.mt\\.CriticalSection\\.acquire\\(\\):[0-9]+"));
    }
    section.release();
    EXPECT_TRUE(isFree(section)) << "it was held once";
}

INSTANTIATE_TEST_SUITE_P(Kinds, PlainSection, testing::Values(Kind::DEFAULT, Kind::PLAIN));

TEST(CriticalSection, RecursiveSectionCanBeAcquiredAgain)
{
    const CriticalSection section(true);
    section.acquire();
    section.acquire();
    EXPECT_TRUE(section.request());
    EXPECT_EQ(0, numberOf(acquire, section));
    for (int held = 4; held > 0; --held) {
        EXPECT_FALSE(isFree(section));
        section.release();
    }
    EXPECT_TRUE(isFree(section));
    EXPECT_FALSE(section.release(std::nothrow));
}

TEST(CriticalSection, DestructorIgnoresThatItIsLocked)
{
    {
        const CriticalSection section(false);
        section.acquire();
    }
    SUCCEED() << "the status is not looked at";
}

}
