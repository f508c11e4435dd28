// The sequence numbers of keys. There are half a billion, so this program compiles the allocation into itself
// and sets the last number.

#include <dalnim/type/src/Context.cpp>

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace com::kor::dal::nim::type {
namespace {

/** Returns the key of the next number. */
UInt32_t keyBehind(UInt32_t last, unsigned int attributes = 0)
{
    const sys::InitLock lock(true);
    _key_inited = true;
    _key_last = last;
    return Context::allocateKey(attributes);
}

TEST(ContextKeySequence, ContinuesAt1AfterTheHighestNumber)
{
    EXPECT_EQ(0xFFFFFC7EU, keyBehind(0x1FFFFFFD));
    EXPECT_EQ(0x1FFFFFFEU, _key_last);
    EXPECT_EQ(0xFFFFFC7FU, Context::allocateKey(0));
    EXPECT_EQ(0x1FFFFFFFU, _key_last);
    EXPECT_EQ(0x00000001U, Context::allocateKey(0));
    EXPECT_EQ(1U, _key_last);
    EXPECT_EQ(0x00000002U, Context::allocateKey(0));
    EXPECT_EQ(2U, _key_last);
}

TEST(ContextKeySequence, KeyContainsTheNumberAroundTheAttributes)
{
    EXPECT_EQ(0x00000005U, keyBehind(4));
    EXPECT_EQ(0x00000085U, keyBehind(4, 1));
    EXPECT_EQ(0x00000105U, keyBehind(4, 2));
    EXPECT_EQ(0x00000205U, keyBehind(4, 4));
    EXPECT_EQ(0x00000205U, keyBehind(4, 6));
    EXPECT_EQ(0x00000048U, keyBehind(7));
    EXPECT_EQ(0x0000007FU, keyBehind(0x7E));
    EXPECT_EQ(0x00000400U, keyBehind(0x7F));
    EXPECT_EQ(0x91A2B078U, keyBehind(0x12345677));
    EXPECT_EQ(0x91A2B0F8U, keyBehind(0x12345677, 1));
    EXPECT_EQ(0xFFFFFE7FU, keyBehind(0x1FFFFFFE, 4));
}

TEST(ContextKeySequence, NumbersThatDifferOnlyInBit6HaveTheSameKey)
{
    EXPECT_EQ(5U, keyBehind(4));
    EXPECT_EQ(5U, keyBehind(68));
    EXPECT_EQ(0U, keyBehind(63));
    std::set<UInt32_t> keys{keyBehind(0x7F)};
    for (int i = 1; i < 128; ++i) {
        keys.insert(Context::allocateKey(0));
    }
    EXPECT_EQ(64U, keys.size());
}

TEST(ContextKeySequence, InvalidAttributesDoNotAdvanceTheSequence)
{
    EXPECT_EQ(0x0000000AU | 0x40U, keyBehind(9));
    EXPECT_THROW(Context::allocateKey(8), sys::system_error);
    EXPECT_THROW(Context::allocateKey(3), sys::system_error);
    EXPECT_EQ(10U, _key_last);
}

TEST(ContextKeySequence, StartsAtAUniqueNumberInTheLowerHalf)
{
    for (int i = 0; i < 20; ++i) {
        _key_inited = false;
        const UInt64_t drawn = sys::UniqueID::nextUid64();
        Context::allocateKey(0);
        EXPECT_TRUE(_key_inited);
        EXPECT_EQ(((drawn + 1) & 0x0FFFFFFF) + 1, _key_last);
        const UInt32_t first = _key_last;
        Context::allocateKey(0);
        EXPECT_EQ(first + 1, _key_last);
        EXPECT_EQ(drawn + 2, sys::UniqueID::nextUid64());
    }
}

TEST(ContextKeySequence, ConcurrentFirstCallsStartOnce)
{
    constexpr int THREADS = 8;
    for (int round = 0; round < 20; ++round) {
        _key_inited = false;
        std::atomic<int> ready{0};
        std::vector<UInt32_t> keys(THREADS);
        std::vector<std::thread> threads;
        for (UInt32_t& key : keys) {
            threads.emplace_back([&ready, &key] {
                ++ready;
                while (ready.load() != THREADS) {
                    std::this_thread::yield();
                }
                key = Context::allocateKey(2);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(std::size_t(THREADS), std::set<UInt32_t>(keys.begin(), keys.end()).size());
    }
}

}
}
