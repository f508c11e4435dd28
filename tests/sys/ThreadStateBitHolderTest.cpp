#include <dalnim/sys/internal/ThreadStateBitHolder.hpp>

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

namespace {

using com::kor::dal::nim::sys::internal::ThreadMode_t;
using com::kor::dal::nim::sys::internal::ThreadState;
using com::kor::dal::nim::sys::internal::ThreadStateBitHolder;

static_assert(!std::is_copy_assignable_v<ThreadStateBitHolder>);
static_assert(!std::is_copy_constructible_v<ThreadStateBitHolder>);

class ThreadStateBitHolderTest : public testing::Test
{
protected:
    ThreadState& state = ThreadState::current();

    void SetUp() override
    {
        state.mode = 1;
    }
    void TearDown() override
    {
        state.mode = 1;
    }
};

TEST_F(ThreadStateBitHolderTest, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("ThreadStateBitHolder", ThreadStateBitHolder::CLASS_NAME);
}

TEST_F(ThreadStateBitHolderTest, KeepsTheInitialBit)
{
    for (const bool multi : {false, true}) {
        {
            const ThreadStateBitHolder holder(1, multi);
            EXPECT_EQ(0U, holder.active());
            EXPECT_EQ(1U, state.mode);
        }
        EXPECT_EQ(1U, state.mode);
    }
}

TEST_F(ThreadStateBitHolderTest, SetsAndClearsBitsThatAreClear)
{
    for (const bool multi : {false, true}) {
        {
            const ThreadStateBitHolder holder(6, multi);
            EXPECT_EQ(6U, holder.active());
            EXPECT_EQ(7U, state.mode);
        }
        EXPECT_EQ(1U, state.mode);
    }
}

TEST_F(ThreadStateBitHolderTest, WithMultiSetsTheRemainingBits)
{
    state.mode = 3;
    {
        const ThreadStateBitHolder holder(6, true);
        EXPECT_EQ(4U, holder.active());
        EXPECT_EQ(7U, state.mode);
    }
    EXPECT_EQ(3U, state.mode);
}

TEST_F(ThreadStateBitHolderTest, WithoutMultiSetsAllBitsOrNone)
{
    state.mode = 3;
    {
        const ThreadStateBitHolder holder(6, false);
        EXPECT_EQ(0U, holder.active());
        EXPECT_EQ(3U, state.mode);
    }
    EXPECT_EQ(3U, state.mode);
}

TEST_F(ThreadStateBitHolderTest, NoFlagsSetNothing)
{
    for (const bool multi : {false, true}) {
        const ThreadStateBitHolder holder(0, multi);
        EXPECT_EQ(0U, holder.active());
        EXPECT_EQ(1U, state.mode);
    }
}

TEST_F(ThreadStateBitHolderTest, SetsAnyBits)
{
    {
        const ThreadStateBitHolder holder(0xffffffffU, true);
        EXPECT_EQ(0xfffffffeU, holder.active());
        EXPECT_EQ(0xffffffffU, state.mode);
    }
    EXPECT_EQ(1U, state.mode);
    state.mode = 0;
    {
        const ThreadStateBitHolder holder(0xffffffffU, false);
        EXPECT_EQ(0xffffffffU, holder.active());
        EXPECT_EQ(0xffffffffU, state.mode);
    }
    EXPECT_EQ(0U, state.mode);
    state.mode = 1;
    const ThreadStateBitHolder highest(0x80000000U, false);
    EXPECT_EQ(0x80000001U, state.mode);
}

TEST_F(ThreadStateBitHolderTest, PreventsReentrance)
{
    for (const bool multi : {false, true}) {
        {
            const ThreadStateBitHolder outer(2, multi);
            EXPECT_EQ(2U, outer.active());
            {
                const ThreadStateBitHolder inner(2, multi);
                EXPECT_EQ(0U, inner.active());
                EXPECT_EQ(3U, state.mode);
            }
            EXPECT_EQ(3U, state.mode) << "the inner holder clears no bit";
        }
        EXPECT_EQ(1U, state.mode);
    }
}

TEST_F(ThreadStateBitHolderTest, ClearsExactlyTheBitsThatItHasSet)
{
    {
        const ThreadStateBitHolder holder(6, true);
        state.mode |= 0x100;
        state.mode &= ~ThreadMode_t(1);
    }
    EXPECT_EQ(0x100U, state.mode);
}

TEST_F(ThreadStateBitHolderTest, DoesNotAffectOtherThreads)
{
    const ThreadStateBitHolder holder(2, false);
    std::thread([] {
        const ThreadStateBitHolder other(2, false);
        EXPECT_EQ(2U, other.active());
        EXPECT_EQ(3U, ThreadState::current().mode);
    }).join();
    EXPECT_EQ(3U, state.mode);
}

}
