#include <dalnim/type/Context.hpp>

#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <type_traits>
#include <vector>

#include <support/VirtualSlot.hpp>

#include "Content.hpp"

namespace {

using com::kor::dal::nim::sys::internal::ThreadState;
using typetest::Context;
using typetest::ContextRef;
using typetest::failureTrace;
using typetest::Named;
using typetest::RefCntObject;
using typetest::RefCntObjectRef;
using typetest::errorMessage;
using typetest::UInt32_t;

static_assert(std::is_abstract_v<Context>);
static_assert(std::has_virtual_destructor_v<Context>);
static_assert(!std::is_destructible_v<Context>, "it goes by its count only");
static_assert(!std::is_copy_constructible_v<Context> && !std::is_copy_assignable_v<Context>);
static_assert(std::is_convertible_v<Context*, RefCntObject*>);

/** Two bases with one counted root. */
class Twofold : public Named, public virtual RefCntObject
{
public:
    using Named::Named;
};
static_assert(std::is_convertible_v<Twofold*, RefCntObject*>, "the counted base is a virtual one");

// Runs at load time, before main().
const UInt32_t loadTimeKey = Context::allocateKey(4);
const int loadTimeAttributes = static_cast<int>(Context::keyAttributes(loadTimeKey));
const bool loadTimeContext = !!Context::current();

TEST(Context, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("Context", Context::CLASS_NAME);
}

// The virtual functions of the virtual base are in a table of their own.
TEST(Context, KeyHasTheSlotAfterTheDestructor)
{
    EXPECT_EQ(2, virtualSlot(&Context::key));
}

TEST(Context, SeveralBasesShareOneCount)
{
    const ContextRef ref(new Twofold(7));
    EXPECT_EQ(1U, ref->refCount());
    const RefCntObjectRef other(ref);
    EXPECT_EQ(2U, ref->refCount());
    EXPECT_EQ(7U, ref->key());
}

TEST(Context, CopiesNothing)
{
    class Copied : public Named
    {
    public:
        using Named::Named;
    };
    Copied one(1);
    const Copied two(one);
    one.acquireRef();
    one = two;
    EXPECT_EQ(1U, one.refCount(false));
    EXPECT_EQ(0U, two.refCount(false));
}

TEST(ContextKey, ContainsItsAttributes)
{
    EXPECT_EQ(0U, Context::keyAttributes(Context::allocateKey(0)));
    EXPECT_EQ(1U, Context::keyAttributes(Context::allocateKey(1)));
    EXPECT_EQ(2U, Context::keyAttributes(Context::allocateKey(2)));
    EXPECT_EQ(4U, Context::keyAttributes(Context::allocateKey(4)));
    EXPECT_EQ(4U, Context::keyAttributes(Context::allocateKey(6)));
}

TEST(ContextKey, ContainsItsAttributesInBits7To9)
{
    EXPECT_EQ(0x000U, Context::allocateKey(0) & 0x380);
    EXPECT_EQ(0x080U, Context::allocateKey(1) & 0x380);
    EXPECT_EQ(0x100U, Context::allocateKey(2) & 0x380);
    EXPECT_EQ(0x200U, Context::allocateKey(4) & 0x380);
    EXPECT_EQ(0x200U, Context::allocateKey(6) & 0x380);
}

TEST(ContextKey, IsAllocatedAtLoadTime)
{
    EXPECT_EQ(4, loadTimeAttributes);
    EXPECT_EQ(4U, Context::keyAttributes(loadTimeKey));
    EXPECT_TRUE(loadTimeContext);
}

TEST(ContextKey, UnknownAttributesThrow)
{
    for (const unsigned int attributes : {8U, 9U, 16U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ("Unrecognized content attributes.",
                  errorMessage([&] { Context::allocateKey(attributes); }));
    }
    EXPECT_EQ("com.kor.dal.nim.type.Context.allocateKey()\n", failureTrace([] { Context::allocateKey(8); }));
}

TEST(ContextKey, ConflictingAttributesThrow)
{
    for (const unsigned int attributes : {3U, 5U, 7U}) {
        EXPECT_EQ("Conflicting content attributes.", errorMessage([&] { Context::allocateKey(attributes); }));
    }
}

TEST(ContextKey, KeyAttributesReturnsTheAttributesOfAnyKey)
{
    EXPECT_EQ(0U, Context::keyAttributes(0));
    EXPECT_EQ(0U, Context::keyAttributes(0xFFFFFC7F));
    EXPECT_EQ(1U, Context::keyAttributes(0x080));
    EXPECT_EQ(2U, Context::keyAttributes(0x100));
    EXPECT_EQ(4U, Context::keyAttributes(0x200));
    EXPECT_EQ(6U, Context::keyAttributes(0x300));
    EXPECT_EQ(6U, Context::keyAttributes(0xFFFFFF7F));
}

TEST(ContextKey, ReservedKeyThrows)
{
    EXPECT_EQ("Reserved content key.", errorMessage([] { Context::keyAttributes(0xFFFFFFFF); }));
    EXPECT_EQ("com.kor.dal.nim.type.Context.keyAttributes()\n",
              failureTrace([] { Context::keyAttributes(0xFFFFFFFF); }));
}

TEST(ContextKey, KeysWithConflictingAttributesThrow)
{
    for (const unsigned int key : {0x180U, 0x280U, 0x380U, 0xFFFFFFFEU, 0x12345180U}) {
        EXPECT_EQ("Key contains conflicting content attributes.",
                  errorMessage([&] { Context::keyAttributes(key); }));
    }
}

// Numbers that differ only in bit 6 have the same key, so only 64 consecutive keys are certain to differ.
TEST(ContextKey, ConcurrentAllocationsReturnDifferentKeys)
{
    constexpr int THREADS = 8;
    constexpr int KEYS = 8;
    std::atomic<int> ready{0};
    std::vector<std::vector<UInt32_t>> keys(THREADS);
    std::vector<std::thread> threads;
    for (std::vector<UInt32_t>& mine : keys) {
        threads.emplace_back([&ready, &mine] {
            ++ready;
            while (ready.load() != THREADS) {
                std::this_thread::yield();
            }
            for (int i = 0; i < KEYS; ++i) {
                mine.push_back(Context::allocateKey(1));
            }
        });
    }
    std::set<UInt32_t> all;
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::vector<UInt32_t>& some : keys) {
        all.insert(some.begin(), some.end());
    }
    EXPECT_EQ(std::size_t(THREADS * KEYS), all.size());
}

TEST(Context, CurrentIsThatOfTheThread)
{
    const ContextRef current = Context::current();
    EXPECT_TRUE(current == ThreadState::current().contextRef.get());
    EXPECT_TRUE(current == Context::current());
    EXPECT_EQ(0U, current->key());
    std::thread([&current] { EXPECT_TRUE(Context::current() != current); }).join();
}

}
