#include <dalnim/type/ContextScope.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/sys/StackTrack.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <log/Loggers.hpp>

#include "Content.hpp"

namespace {

using com::kor::dal::nim::PointerInt_t;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::type::ContextScope;
using namespace typetest;

static_assert(!std::is_copy_constructible_v<ContextScope> && !std::is_copy_assignable_v<ContextScope>);
static_assert(std::is_nothrow_default_constructible_v<ContextScope>);
static_assert(std::is_nothrow_destructible_v<ContextScope>);
static_assert(std::is_same_v<PointerInt_t, unsigned long long>);
static_assert(std::is_same_v<ContextScope::Operation,
                             RefCntObjectRef (*)(const ContainerContextRef&, unsigned int, PointerInt_t)>);
static_assert(std::is_same_v<decltype(&ContextScope::opRemove), ContextScope::Operation>);

/** The arguments of a call of an operation. */
struct Call
{
    char operation;
    const void* target;
    unsigned int key;
    PointerInt_t param;

    bool operator==(const Call& other) const
    {
        return operation == other.operation && target == other.target && key == other.key
               && param == other.param;
    }
};
std::vector<Call> calls;

void note(char operation, const ContainerContextRef& target, unsigned int key, PointerInt_t param)
{
    calls.push_back({operation, target.get(), key, param});
}

RefCntObjectRef make(const ContainerContextRef& target, unsigned int key, PointerInt_t param)
{
    note('m', target, key, param);
    return RefCntObjectRef(new Item);
}

RefCntObjectRef makeNothing(const ContainerContextRef& target, unsigned int key, PointerInt_t param)
{
    note('n', target, key, param);
    return RefCntObjectRef();
}

RefCntObjectRef makeContextOfAnotherKey(const ContainerContextRef& target, unsigned int key,
                                        PointerInt_t param)
{
    note('a', target, key, param);
    return RefCntObjectRef(new Named(key + 1));
}

RefCntObjectRef failToMake(const ContainerContextRef& target, unsigned int key, PointerInt_t param)
{
    note('f', target, key, param);
    throw std::runtime_error("cannot make");
}

RefCntObjectRef unmake(const ContainerContextRef& target, unsigned int key, PointerInt_t param)
{
    note('u', target, key, param);
    return ContextScope::opRemove(target, key, param);
}

RefCntObjectRef failToUnmake(const ContainerContextRef& target, unsigned int key, PointerInt_t param)
{
    note('x', target, key, param);
    throw std::runtime_error("cannot unmake");
}

RefCntObjectRef failBySystem(const ContainerContextRef&, unsigned int, PointerInt_t)
{
    const StackTrack track("unmake()", 0);
    throw system_error(5, "no device");
}

RefCntObjectRef failByNumber(const ContainerContextRef&, unsigned int, PointerInt_t)
{
    throw 7;
}

class ContextScopeTest : public testing::Test
{
protected:
    ContextScopeTest()
    {
        calls.clear();
    }

    bool hasEntry(unsigned int key = STAYS)
    {
        return !!bag->find(key);
    }

    const ContainerContextRef bag{new Bag};
    const ContainerContextRef other{new Bag};
};

TEST_F(ContextScopeTest, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("ContextScope", ContextScope::CLASS_NAME);
}

TEST_F(ContextScopeTest, IsInactiveAtFirst)
{
    ContextScope scope;
    EXPECT_FALSE(scope.active());
    EXPECT_EQ(&scope, &scope.clear());
    EXPECT_FALSE(scope.active());
}

TEST_F(ContextScopeTest, EntryExistsWithinTheBlock)
{
    {
        const ContextScope scope(make, unmake, STAYS, 0xFFFFFFFFFFFFFFFF, bag);
        EXPECT_TRUE(scope.active());
        EXPECT_TRUE(hasEntry());
        EXPECT_EQ((std::vector<Call>{{'m', bag.get(), STAYS, 0xFFFFFFFFFFFFFFFF}}), calls);
        EXPECT_EQ(2U, bag->refCount());
        calls.clear();
    }
    EXPECT_EQ((std::vector<Call>{{'u', bag.get(), STAYS, 0xFFFFFFFFFFFFFFFF}}), calls);
    EXPECT_FALSE(hasEntry());
    EXPECT_EQ(1U, bag->refCount());
}

TEST_F(ContextScopeTest, KeepsItsTargetAlive)
{
    int live = 0;
    ContextScope scope;
    {
        ContainerContextRef target(new Bag);
        target->add(RefCntObjectRef(new Item(&live)), SHARED);
        scope.set(make, unmake, STAYS, 0, target);
    }
    EXPECT_EQ(1, live);
    scope.clear();
    EXPECT_EQ(0, live);
}

TEST_F(ContextScopeTest, ExistingEntryIsUnaffected)
{
    const RefCntObjectRef there(new Item);
    ContainerContextRef(bag)->add(there, STAYS);
    {
        const ContextScope scope(make, unmake, STAYS, 1, bag);
        EXPECT_FALSE(scope.active());
    }
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(bag->find(STAYS) == there);
}

TEST_F(ContextScopeTest, NestedScopesShareTheEntry)
{
    {
        const ContextScope outer(make, unmake, STAYS, 1, bag);
        const RefCntObject* const made = bag->find(STAYS).get();
        {
            const ContextScope inner(make, unmake, STAYS, 2, bag);
            EXPECT_FALSE(inner.active());
        }
        EXPECT_EQ(made, bag->find(STAYS).get());
        EXPECT_EQ(1U, calls.size());
    }
    EXPECT_FALSE(hasEntry());
    EXPECT_EQ(2U, calls.size());
}

TEST_F(ContextScopeTest, EmptyResultOfTheFactoryIsStored)
{
    {
        const ContextScope scope(makeNothing, unmake, STAYS, 0, bag);
        EXPECT_TRUE(scope.active());
        EXPECT_FALSE(ContainerContextRef(bag)->add(RefCntObjectRef(new Item), STAYS))
            << "the key has an entry";
    }
    EXPECT_EQ(2U, calls.size());
    EXPECT_TRUE(ContainerContextRef(bag)->add(RefCntObjectRef(new Item), STAYS));
}

// The key has an empty reference: the result of the factory is not stored, but the clean-up runs.
TEST_F(ContextScopeTest, ExistingEmptyReferenceCountsAsAbsent)
{
    ContainerContextRef(bag)->add(RefCntObjectRef(), STAYS);
    {
        const ContextScope scope(make, unmake, STAYS, 0, bag);
        EXPECT_TRUE(scope.active());
        EXPECT_FALSE(hasEntry());
    }
    EXPECT_EQ((std::vector<Call>{{'m', bag.get(), STAYS, 0}, {'u', bag.get(), STAYS, 0}}), calls);
    EXPECT_TRUE(ContainerContextRef(bag)->add(RefCntObjectRef(), STAYS));
}

TEST_F(ContextScopeTest, DoesNothingWithoutATarget)
{
    {
        ContextScope scope(make, unmake, STAYS, 0, ContainerContextRef());
        EXPECT_FALSE(scope.active());
        scope.set(failToMake, failToUnmake, RESERVED, 0, ContainerContextRef());
        EXPECT_FALSE(scope.active());
        scope.clear();
    }
    EXPECT_TRUE(calls.empty());
}

TEST_F(ContextScopeTest, DoesNothingWithoutAFactory)
{
    {
        const ContextScope scope(nullptr, unmake, STAYS, 0, bag);
        EXPECT_FALSE(scope.active());
        const ContextScope without(nullptr, nullptr, RESERVED, 0, bag);
        EXPECT_FALSE(without.active());
    }
    EXPECT_TRUE(calls.empty());
    EXPECT_FALSE(hasEntry());
}

TEST_F(ContextScopeTest, EntryRemainsWithoutACleanUp)
{
    {
        const ContextScope scope(make, nullptr, STAYS, 0, bag);
        EXPECT_TRUE(scope.active());
    }
    EXPECT_TRUE(hasEntry());
}

TEST_F(ContextScopeTest, SetCleansUpFirst)
{
    ContextScope scope(make, unmake, STAYS, 1, bag);
    EXPECT_EQ(&scope, &scope.set(make, unmake, SHARED, 2, other));
    EXPECT_EQ((std::vector<Call>{
                  {'m', bag.get(), STAYS, 1}, {'u', bag.get(), STAYS, 1}, {'m', other.get(), SHARED, 2}}),
              calls);
    EXPECT_TRUE(scope.active());
    EXPECT_FALSE(hasEntry());
    EXPECT_EQ(1U, bag->refCount());
    EXPECT_EQ(2U, other->refCount());

    scope.set(make, unmake, SHARED, 3, other);
    EXPECT_TRUE(scope.active()) << "its own entry was already removed";
    scope.set(nullptr, unmake, SHARED, 4, other);
    EXPECT_FALSE(scope.active());
    EXPECT_TRUE(!other->find(SHARED));
    scope.clear();
    EXPECT_EQ(6U, calls.size());
    EXPECT_EQ((Call{'u', other.get(), SHARED, 3}), calls.back());
}

TEST_F(ContextScopeTest, RepeatedClearCleansUpOnce)
{
    {
        ContextScope scope(make, unmake, STAYS, 0, bag);
        scope.clear();
        EXPECT_FALSE(scope.active());
        EXPECT_FALSE(hasEntry());
        EXPECT_EQ(1U, bag->refCount());
        scope.clear();
    }
    EXPECT_EQ(2U, calls.size());
}

TEST_F(ContextScopeTest, ClearKeepsAnEntryOfAnotherScope)
{
    ContextScope outer(make, unmake, STAYS, 1, bag);
    ContextScope inner(make, unmake, STAYS, 2, bag);
    inner.clear();
    EXPECT_TRUE(hasEntry());
    EXPECT_TRUE(outer.active());
}

TEST_F(ContextScopeTest, OpRemoveRemovesTheEntry)
{
    const RefCntObjectRef filed(new Item);
    ContainerContextRef(bag)->add(filed, STAYS);
    EXPECT_TRUE(!ContextScope::opRemove(ContainerContextRef(), STAYS, 0));
    EXPECT_TRUE(!ContextScope::opRemove(bag, SHARED, 0));
    EXPECT_TRUE(ContextScope::opRemove(bag, STAYS, 99) == filed);
    EXPECT_FALSE(hasEntry());
}

// Failures.

TEST_F(ContextScopeTest, ExceptionOfTheFactoryPropagatesWithoutCleanUp)
{
    EXPECT_THROW(ContextScope(failToMake, unmake, STAYS, 0, bag), std::runtime_error);
    {
        ContextScope scope(make, unmake, SHARED, 1, bag);
        EXPECT_THROW(scope.set(failToMake, unmake, STAYS, 2, other), std::runtime_error);
        EXPECT_FALSE(scope.active());
        EXPECT_EQ(2U, other->refCount()) << "the scope already refers to its new target";
    }
    EXPECT_EQ((std::vector<Call>{{'f', bag.get(), STAYS, 0},
                                 {'m', bag.get(), SHARED, 1},
                                 {'u', bag.get(), SHARED, 1},
                                 {'f', other.get(), STAYS, 2}}),
              calls);
}

TEST_F(ContextScopeTest, ExceptionOfAddPropagates)
{
    EXPECT_EQ("Context key mismatch.",
              errorMessage([this] { ContextScope(makeContextOfAnotherKey, unmake, STAYS, 0, bag); }));
    EXPECT_EQ("Content flagged for duplication is not Cloneable.",
              errorMessage([this] { ContextScope(make, unmake, DEEP, 0, bag); }));
    EXPECT_EQ("Reserved content key.",
              errorMessage([this] { ContextScope(make, unmake, RESERVED, 0, bag); }));
    EXPECT_EQ("com.kor.dal.nim.type.ContainerContext.add()\n"
              "com.kor.dal.nim.type.ContextScope.ContextScope()\n",
              failureTrace([this] { ContextScope(make, unmake, DEEP, 0, bag); }));
    ContextScope scope;
    EXPECT_EQ("com.kor.dal.nim.type.ContainerContext.add()\ncom.kor.dal.nim.type.ContextScope.set()\n",
              failureTrace([&] { scope.set(make, unmake, DEEP, 0, bag); }));
    for (const Call& call : calls) {
        EXPECT_NE('u', call.operation);
    }
}

TEST_F(ContextScopeTest, IsUnchangedIfItsCleanUpThrows)
{
    const logtest::DefaultLogger logger;
    {
        ContextScope scope(make, failToUnmake, STAYS, 1, bag);
        EXPECT_THROW(scope.set(make, unmake, SHARED, 2, other), std::runtime_error);
        EXPECT_TRUE(scope.active());
        EXPECT_EQ(1U, other->refCount());
        EXPECT_THROW(scope.clear(), std::runtime_error);
        EXPECT_TRUE(scope.active());
        EXPECT_EQ(2U, bag->refCount());
    }
    EXPECT_EQ((std::vector<Call>{{'m', bag.get(), STAYS, 1},
                                 {'x', bag.get(), STAYS, 1},
                                 {'x', bag.get(), STAYS, 1},
                                 {'x', bag.get(), STAYS, 1}}),
              calls);
}

TEST_F(ContextScopeTest, ClearThatCleansUpIsInTheTrace)
{
    const logtest::DefaultLogger logger;
    ContextScope scope(make, failBySystem, STAYS, 0, bag);
    EXPECT_EQ("unmake()\ncom.kor.dal.nim.type.ContextScope.clear()\n", failureTrace([&] { scope.clear(); }));
    ContainerContextRef(bag)->remove(STAYS);
    EXPECT_EQ("unmake()\ncom.kor.dal.nim.type.ContextScope.set()\n",
              failureTrace([&] { scope.set(make, unmake, STAYS, 0, bag); }));
}

TEST_F(ContextScopeTest, DestructorLogsAnExceptionOfTheCleanUp)
{
    logtest::DefaultLogger logger;
    {
        const ContextScope scope(make, failToUnmake, STAYS, 0, bag);
    }
    EXPECT_EQ("com.kor.dal.nim WARNING ContextScope : Unexpected context exception : cannot unmake\n",
              logger.taken());
    EXPECT_EQ(1U, bag->refCount()) << "the target is released nevertheless";
    EXPECT_TRUE(hasEntry());
}

TEST_F(ContextScopeTest, LogsTheNumberAndTheTraceOfASystemError)
{
    logtest::DefaultLogger logger;
    {
        const ContextScope scope(make, failBySystem, STAYS, 0, bag);
    }
    const String text = logger.taken();
    const String front = "com.kor.dal.nim WARNING ContextScope : "
                         "Unexpected context exception : 5 : no device\n"
                         "  [1]\tunmake()\n"
                         "  [0]\tcom.kor.dal.nim.type.ContextScope.~ContextScope():";
    EXPECT_EQ(front, text.substr(0, front.size()));
    EXPECT_EQ(text.size() - 1, text.find('\n', front.size())) << "only one number";
}

TEST_F(ContextScopeTest, DisabledSeverityLogsNothing)
{
    logtest::DefaultLogger logger;
    logger->setSeverity(com::kor::dal::nim::log::Severity_ERROR);
    logger.taken();
    {
        const ContextScope scope(make, failToUnmake, STAYS, 0, bag);
    }
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ('x', calls.back().operation);
}

TEST_F(ContextScopeTest, ExceptionThatLeavesTheBlockPropagates)
{
    logtest::DefaultLogger logger;
    try {
        const ContextScope scope(make, failToUnmake, STAYS, 0, bag);
        throw std::logic_error("the block's own");
    } catch (const std::logic_error& error) {
        EXPECT_STREQ("the block's own", error.what());
    }
    EXPECT_EQ("com.kor.dal.nim WARNING ContextScope : Unexpected context exception : cannot unmake\n",
              logger.taken());
}

TEST(ContextScopeDeathTest, NonStandardExceptionInTheDestructorTerminates)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(ContextScope(make, failByNumber, STAYS, 0, ContainerContextRef(new Bag)),
                testing::KilledBySignal(SIGABRT), "");
}

bool willing = false;

RefCntObjectRef unmakeWhenWilling(const ContainerContextRef& target, unsigned int key, PointerInt_t param)
{
    return willing ? unmake(target, key, param) : failByNumber(target, key, param);
}

TEST_F(ContextScopeTest, AnyExceptionOfTheCleanUpLeavesClear)
{
    ContextScope scope(make, unmakeWhenWilling, STAYS, 0, bag);
    EXPECT_THROW(scope.clear(), int);
    EXPECT_THROW(scope.set(make, unmake, STAYS, 0, other), int);
    EXPECT_TRUE(scope.active());
    EXPECT_TRUE(hasEntry());
    willing = true;
    scope.clear();
    EXPECT_FALSE(hasEntry());
    willing = false;
}

}
