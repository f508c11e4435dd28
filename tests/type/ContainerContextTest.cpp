#include <dalnim/type/ContainerContext.hpp>

#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "Content.hpp"

namespace {

using com::kor::dal::nim::mem::ConstRefCntObjectRef;
using com::kor::dal::nim::sys::internal::ThreadState;
using namespace typetest;

static_assert(std::is_abstract_v<ContainerContext>);
static_assert(std::is_base_of_v<Context, ContainerContext>);
static_assert(std::is_convertible_v<ContainerContext*, Context*>);
static_assert(!std::is_copy_assignable_v<ContainerContext> && !std::is_destructible_v<ContainerContext>);
static_assert(noexcept(std::declval<Bag&>().clearContent()));
static_assert(std::is_same_v<decltype(std::declval<const Bag&>().find(0U)), const ConstRefCntObjectRef&>);
static_assert(std::is_same_v<decltype(std::declval<Bag&>().find(0U)), const RefCntObjectRef&>);
static_assert(std::is_same_v<decltype(std::declval<Bag&>().remove(0U)), RefCntObjectRef>);

const RefCntObject* at(const Bag& bag, unsigned int key)
{
    return bag.find(key).get();
}

const Sheep& sheepAt(const Bag& bag, unsigned int key)
{
    return dynamic_cast<const Sheep&>(*bag.find(key));
}

RefCntObjectRef item(int* live = nullptr)
{
    return RefCntObjectRef(new Item(live));
}

RefCntObjectRef sheep(int* live = nullptr)
{
    return RefCntObjectRef(new Sheep(live));
}

/** Returns true if the key has an entry. Leaves the context unchanged. */
bool isTaken(Bag& bag, unsigned int key)
{
    if (bag.add(RefCntObjectRef(), key)) {
        bag.remove(key);
        return false;
    }
    return true;
}

TEST(ContainerContext, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("ContainerContext", ContainerContext::CLASS_NAME);
}

TEST(ContainerContext, FindsAStoredReference)
{
    Bag bag;
    const RefCntObjectRef ref = item();
    EXPECT_TRUE(bag.add(ref, STAYS));
    EXPECT_EQ(ref.get(), at(bag, STAYS));
    EXPECT_TRUE(bag.find(STAYS) == ref);
    EXPECT_EQ(2U, ref->refCount());
    EXPECT_EQ(static_cast<const void*>(&bag.find(STAYS)),
              static_cast<const void*>(&std::as_const(bag).find(STAYS)));
}

TEST(ContainerContext, FindOfAnAbsentKeyReturnsAnEmptyReferenceAndStoresNothing)
{
    Bag bag;
    EXPECT_TRUE(!bag.find(STAYS));
    EXPECT_TRUE(!std::as_const(bag).find(STAYS));
    EXPECT_TRUE(!bag.find(RESERVED));
    EXPECT_TRUE(bag.add(item(), STAYS));
    EXPECT_FALSE(!bag.find(STAYS));
}

TEST(ContainerContext, SecondAddUnderAKeyIsRejected)
{
    Bag bag;
    const RefCntObjectRef first = item();
    const RefCntObjectRef second = item();
    EXPECT_TRUE(bag.add(first, STAYS));
    EXPECT_FALSE(bag.add(second, STAYS));
    EXPECT_FALSE(bag.add(first, STAYS));
    EXPECT_FALSE(bag.add(RefCntObjectRef(), STAYS));
    EXPECT_EQ(first.get(), at(bag, STAYS));
    EXPECT_EQ(2U, first->refCount());
    EXPECT_EQ(1U, second->refCount());
}

TEST(ContainerContext, StoresAnEmptyReferenceUnderAnyAttributes)
{
    for (const unsigned int key : {STAYS, SHARED, SHALLOW, DEEP, DEEP_AND_SHALLOW}) {
        Bag bag;
        EXPECT_TRUE(bag.add(RefCntObjectRef(), key));
        EXPECT_TRUE(!bag.find(key));
        EXPECT_FALSE(bag.add(sheep(), key));
        EXPECT_TRUE(!bag.find(key));
        EXPECT_TRUE(!bag.remove(key));
        EXPECT_TRUE(bag.add(sheep(), key));
    }
}

TEST(ContainerContext, StoresAContextUnderItsOwnKey)
{
    Bag bag;
    const ContextRef first(new Named(STAYS));
    const ContextRef second(new Named(STAYS));
    EXPECT_TRUE(bag.add(first));
    EXPECT_FALSE(bag.add(second));
    EXPECT_FALSE(bag.add(ContextRef()));
    EXPECT_EQ(first.get(), at(bag, STAYS));
    EXPECT_TRUE(bag.add(RefCntObjectRef(new Named(SHARED)), SHARED));
    EXPECT_TRUE(bag.add(ContextRef(new NamedSheep(DEEP))));
    EXPECT_TRUE(bag.add(RefCntObjectRef(new NamedSheep(SHALLOW)), SHALLOW));
}

TEST(ContainerContext, ContextUnderAnotherKeyThrows)
{
    Bag bag;
    const RefCntObjectRef context(new Named(STAYS));
    for (const unsigned int key : {SHARED, DEEP, CONFLICTING, RESERVED}) {
        EXPECT_EQ("Context key mismatch.", errorMessage([&] { bag.add(context, key); }));
    }
    EXPECT_FALSE(isTaken(bag, SHARED));
    EXPECT_EQ("com.kor.dal.nim.type.ContainerContext.add()\n",
              failureTrace([&] { bag.add(context, SHARED); }));
}

TEST(ContainerContext, ContentThatIsNotCloneableThrowsIfItsKeyRequiresCloning)
{
    Bag bag;
    for (const unsigned int key : {SHALLOW, DEEP, DEEP_AND_SHALLOW}) {
        EXPECT_EQ("Content flagged for duplication is not Cloneable.",
                  errorMessage([&] { bag.add(item(), key); }));
        EXPECT_EQ("Content flagged for duplication is not Cloneable.",
                  errorMessage([&] { bag.add(RefCntObjectRef(new Named(key)), key); }));
        EXPECT_EQ("Context flagged for duplication is not Cloneable.",
                  errorMessage([&] { bag.add(ContextRef(new Named(key))); }));
        EXPECT_FALSE(isTaken(bag, key));
        EXPECT_TRUE(bag.add(sheep(), key));
        EXPECT_EQ("Content flagged for duplication is not Cloneable.",
                  errorMessage([&] { bag.add(item(), key); }))
            << "even if the key has an entry";
    }
    EXPECT_EQ("com.kor.dal.nim.type.ContainerContext.add()\n",
              failureTrace([&] { bag.add(ContextRef(new Named(DEEP))); }));
}

TEST(ContainerContext, InvalidKeysThrow)
{
    Bag bag;
    for (const RefCntObjectRef& ref : {item(), sheep(), RefCntObjectRef()}) {
        EXPECT_EQ("Reserved content key.", errorMessage([&] { bag.add(ref, RESERVED); }));
        EXPECT_EQ("Key contains conflicting content attributes.",
                  errorMessage([&] { bag.add(ref, CONFLICTING); }));
    }
    EXPECT_EQ("Reserved content key.", errorMessage([&] { bag.add(ContextRef(new Named(RESERVED))); }));
    EXPECT_EQ("Key contains conflicting content attributes.",
              errorMessage([&] { bag.add(ContextRef(new Named(CONFLICTING))); }));
    EXPECT_EQ("com.kor.dal.nim.type.Context.keyAttributes()\ncom.kor.dal.nim.type.ContainerContext.add()\n",
              failureTrace([&] { bag.add(item(), RESERVED); }));
}

TEST(ContainerContext, RemoveReturnsTheReference)
{
    int live = 0;
    Bag bag;
    bag.add(item(&live), STAYS);
    bag.add(item(&live), SHARED);
    {
        const RefCntObjectRef removed = bag.remove(STAYS);
        EXPECT_EQ(1U, removed->refCount());
        EXPECT_FALSE(isTaken(bag, STAYS));
        EXPECT_EQ(2, live);
    }
    EXPECT_EQ(1, live);
    EXPECT_TRUE(!bag.remove(STAYS));
    EXPECT_TRUE(!bag.remove(RESERVED));
    EXPECT_FALSE(!bag.find(SHARED));
}

TEST(ContainerContext, SwapExchangesTheContents)
{
    Bag one;
    Bag two;
    const RefCntObjectRef content[2] = {item(), item()};
    one.add(content[0], STAYS);
    two.add(content[1], SHARED);
    one.swap(two);
    EXPECT_EQ(content[1].get(), at(one, SHARED));
    EXPECT_EQ(content[0].get(), at(two, STAYS));
    EXPECT_FALSE(isTaken(one, STAYS));
    EXPECT_FALSE(isTaken(two, SHARED));
    one.swap(one);
    EXPECT_EQ(content[1].get(), at(one, SHARED));
    EXPECT_EQ(2U, content[0]->refCount());
}

// Duplication.

TEST(ContainerContextCopy, TreatsEachEntryByItsKey)
{
    int live = 0;
    Bag source;
    for (const unsigned int key : {STAYS, SHARED, SHALLOW, DEEP, DEEP_AND_SHALLOW}) {
        source.add(sheep(&live), key);
    }
    {
        const Bag copy(source);
        EXPECT_EQ(nullptr, at(copy, STAYS));
        EXPECT_EQ(at(source, SHARED), at(copy, SHARED));
        EXPECT_EQ(2U, at(copy, SHARED)->refCount());
        for (const unsigned int key : {SHALLOW, DEEP, DEEP_AND_SHALLOW}) {
            EXPECT_NE(at(source, key), at(copy, key));
            EXPECT_EQ(1, sheepAt(copy, key).generation);
            EXPECT_EQ(0, sheepAt(source, key).generation);
            EXPECT_EQ(1U, at(copy, key)->refCount());
        }
        EXPECT_FALSE(sheepAt(copy, SHALLOW).deepClone);
        EXPECT_TRUE(sheepAt(copy, DEEP).deepClone);
        EXPECT_TRUE(sheepAt(copy, DEEP_AND_SHALLOW).deepClone);
        EXPECT_EQ(8, live);
    }
    EXPECT_EQ(5, live);
    EXPECT_EQ(1U, at(source, SHARED)->refCount());
}

TEST(ContainerContextCopy, SharesAnEmptyReference)
{
    Bag source;
    source.add(RefCntObjectRef(), SHARED);
    source.add(RefCntObjectRef(), STAYS);
    Bag copy(source);
    EXPECT_TRUE(isTaken(copy, SHARED));
    EXPECT_FALSE(isTaken(copy, STAYS));
}

TEST(ContainerContextCopy, ReplacesTheContentOfItsTarget)
{
    int live = 0;
    Bag source;
    source.add(sheep(), SHALLOW);
    Bag target;
    target.add(item(&live), STAYS);
    target.add(item(&live), SHARED);
    EXPECT_EQ(&target, &(target = source));
    EXPECT_EQ(0, live);
    EXPECT_FALSE(isTaken(target, STAYS));
    EXPECT_FALSE(isTaken(target, SHARED));
    EXPECT_EQ(1, sheepAt(target, SHALLOW).generation);
}

TEST(ContainerContextCopy, SelfAssignmentDuplicatesTheEntries)
{
    int live = 0;
    Bag bag;
    for (const unsigned int key : {STAYS, SHARED, SHALLOW, DEEP}) {
        bag.add(sheep(&live), key);
    }
    const RefCntObject* const shared = at(bag, SHARED);
    const Bag& same = bag;
    bag = same;
    EXPECT_EQ(3, live);
    EXPECT_FALSE(isTaken(bag, STAYS));
    EXPECT_EQ(shared, at(bag, SHARED));
    EXPECT_EQ(1U, shared->refCount());
    EXPECT_EQ(1, sheepAt(bag, SHALLOW).generation);
    EXPECT_EQ(1, sheepAt(bag, DEEP).generation);
    bag = same;
    EXPECT_EQ(3, live);
    EXPECT_EQ(2, sheepAt(bag, SHALLOW).generation);
}

TEST(ContainerContextCopy, IsExactForAnyNumberOfEntries)
{
    for (const unsigned int entries : {0U, 4U, 32U, 1000U}) {
        int live = 0;
        Bag source;
        for (unsigned int i = 0; i < entries; ++i) {
            // Each attribute in turn. The bits above 9 of a key are arbitrary.
            const unsigned int attributes[] = {0x000, 0x080, 0x100, 0x200};
            source.add(sheep(&live), (i + 1) << 10 | attributes[i % 4]);
        }
        ASSERT_EQ(static_cast<int>(entries), live);
        {
            Bag copy(source);
            EXPECT_EQ(static_cast<int>(entries + entries / 2), live);
            for (unsigned int i = 0; i < entries; i += 4) {
                EXPECT_FALSE(isTaken(copy, (i + 1) << 10));
                EXPECT_EQ(at(source, (i + 2) << 10 | 0x080), at(copy, (i + 2) << 10 | 0x080));
                EXPECT_FALSE(sheepAt(copy, (i + 3) << 10 | 0x100).deepClone);
                EXPECT_TRUE(sheepAt(copy, (i + 4) << 10 | 0x200).deepClone);
            }
            copy = source;
            EXPECT_EQ(static_cast<int>(entries + entries / 2), live);
        }
        EXPECT_EQ(static_cast<int>(entries), live);
        source.clearContent();
        EXPECT_EQ(0, live);
    }
}

TEST(ContainerContextCopy, FoundReferencesStayValidWhenOtherEntriesChange)
{
    Bag source;
    for (const unsigned int key : {SHARED, SHALLOW, DEEP}) {
        source.add(sheep(), key);
    }
    Bag copy(source);
    const RefCntObjectRef& shared = copy.find(SHARED);
    const ConstRefCntObjectRef& clone = std::as_const(copy).find(DEEP);
    const RefCntObject* const object = clone.get();
    EXPECT_TRUE(copy.add(item(), STAYS));
    EXPECT_FALSE(!copy.remove(SHALLOW));
    EXPECT_EQ(at(source, SHARED), shared.get());
    EXPECT_EQ(object, clone.get());
    EXPECT_EQ(2U, shared->refCount());
    EXPECT_EQ(1U, clone->refCount());

    Bag target;
    target.swap(copy);
    EXPECT_EQ(at(source, SHARED), shared.get());
    EXPECT_EQ(object, at(target, DEEP));
}

TEST(ContainerContextCopy, CopyOfACopyTreatsEachEntryByItsKey)
{
    int live = 0;
    Bag source;
    for (const unsigned int key : {STAYS, SHARED, SHALLOW, DEEP}) {
        source.add(sheep(&live), key);
    }
    {
        const Bag first(source);
        const Bag second(first);
        EXPECT_EQ(at(source, SHARED), at(second, SHARED));
        EXPECT_EQ(3U, at(source, SHARED)->refCount());
        EXPECT_EQ(2, sheepAt(second, SHALLOW).generation);
        EXPECT_TRUE(sheepAt(second, DEEP).deepClone);
        EXPECT_EQ(nullptr, at(second, STAYS));
        EXPECT_EQ(8, live);
    }
    EXPECT_EQ(4, live);
    EXPECT_EQ(1U, at(source, SHARED)->refCount());
}

/** Content whose references cannot be acquired while `throws` is set. */
class ThrowingAcquire : public Item
{
public:
    ThrowingAcquire(int* live, const bool& flag) : Item(live), throws(flag) {}

    void acquireRef() const override
    {
        if (throws) {
            throw std::runtime_error("acquire failed");
        }
        Item::acquireRef();
    }

private:
    const bool& throws;
};

TEST(ContainerContextCopy, FailureToAcquireAnEntryReleasesTheOthers)
{
    int live = 0;
    bool throws = false;
    Bag source;
    source.add(item(&live), SHARED);
    source.add(RefCntObjectRef(new ThrowingAcquire(&live, throws)), SHARED + 1);
    const Bag copy(source);
    throws = true;
    EXPECT_THROW(const Bag of(source), std::runtime_error);
    EXPECT_THROW(const Bag of(copy), std::runtime_error);
    throws = false;
    EXPECT_EQ(2U, at(source, SHARED)->refCount());
    EXPECT_EQ(2U, at(source, SHARED + 1)->refCount());
    EXPECT_EQ(2, live);
}

TEST(ContainerContextCopy, EmptyReferenceUnderACloningKeyThrows)
{
    for (const unsigned int key : {SHALLOW, DEEP, DEEP_AND_SHALLOW}) {
        Bag source;
        source.add(RefCntObjectRef(), key);
        EXPECT_EQ("Attempt to dereference null reference.", errorMessage([&] { const Bag copy(source); }));
        EXPECT_EQ("com.kor.dal.nim.type.ContainerContext.operator = ()\n"
                  "com.kor.dal.nim.type.ContainerContext.ContainerContext()\n",
                  failureTrace([&] { const Bag copy(source); }));
    }
}

TEST(ContainerContextCopy, CloneThatIsNotRefCntObjectThrowsBadCast)
{
    int clones = 0;
    for (int* const live : {&clones, static_cast<int*>(nullptr)}) {
        Bag source;
        source.add(RefCntObjectRef(new UncountedClone(live)), SHALLOW);
        EXPECT_THROW(const Bag copy(source), std::bad_cast);
        Bag target;
        EXPECT_THROW(target = source, std::bad_cast);
        EXPECT_EQ(0, clones);
    }
}

TEST(ContainerContextCopy, FailureLeavesTheTargetUnchanged)
{
    int live = 0;
    Bag source;
    source.add(sheep(&live), SHARED);
    source.add(sheep(&live), SHALLOW);
    source.add(RefCntObjectRef(new ThrowingClone), DEEP);
    Bag target;
    target.add(sheep(&live), STAYS);
    const RefCntObject* const before = at(target, STAYS);
    EXPECT_THROW(target = source, std::runtime_error);
    EXPECT_EQ(3, live);
    EXPECT_EQ(before, at(target, STAYS));
    EXPECT_FALSE(isTaken(target, SHARED));
    EXPECT_FALSE(isTaken(target, SHALLOW));
    EXPECT_EQ(1U, at(source, SHARED)->refCount());

    Bag& same = source;
    EXPECT_THROW(source = same, std::runtime_error);
    EXPECT_EQ(0, sheepAt(source, SHALLOW).generation);
}

// Clearing.

TEST(ContainerContextClear, ReleasesAllEntries)
{
    int live = 0;
    const RefCntObjectRef kept = item(&live);
    Bag bag;
    bag.add(kept, SHARED);
    bag.add(item(&live), STAYS);
    bag.add(RefCntObjectRef(), DEEP);
    bag.clearContent();
    EXPECT_EQ(1, live);
    EXPECT_EQ(1U, kept->refCount());
    for (const unsigned int key : {STAYS, SHARED, DEEP}) {
        EXPECT_FALSE(isTaken(bag, key));
    }
    bag.clearContent();
}

TEST(ContainerContextClear, ReleasesInKeyOrderWhileTheContextIsEmpty)
{
    std::vector<unsigned int> gone;
    Bag bag;
    for (const unsigned int key : {DEEP, SHARED, SHALLOW, STAYS}) {
        const unsigned int filed = (key & ~0x380U) | 0x80; // shared, which any content can be
        bag.add(RefCntObjectRef(new Item(nullptr,
                                         [&gone, &bag, filed] {
                                             gone.push_back(filed);
                                             for (const unsigned int any : {0x81U, 0x82U, 0x83U, 0x84U}) {
                                                 EXPECT_TRUE(!bag.find(any));
                                                 EXPECT_TRUE(!bag.remove(any));
                                             }
                                         })),
                filed);
    }
    bag.clearContent();
    EXPECT_EQ((std::vector<unsigned int>{0x81, 0x82, 0x83, 0x84}), gone);
}

TEST(ContainerContextClear, KeepsAnEntryThatADestructorAdds)
{
    Bag bag;
    bag.add(RefCntObjectRef(new Item(nullptr, [&bag] { bag.add(item(), SHARED); })), STAYS);
    bag.clearContent();
    EXPECT_FALSE(isTaken(bag, STAYS));
    EXPECT_TRUE(isTaken(bag, SHARED));
}

void addFailing(Bag& bag, int* live)
{
    for (const unsigned int key : {0x401U, 0x402U, 0x403U}) {
        bag.add(RefCntObjectRef(new Item(live,
                                         [key] {
                                             if (key == 0x402) {
                                                 throw std::runtime_error("destructor failed");
                                             }
                                             if (key == 0x403) {
                                                 throw 7;
                                             }
                                         })),
                key);
    }
    bag.add(item(live), 0x404);
}

TEST(ContainerContextClear, DiscardsExceptionsOfDestructors)
{
    int live = 0;
    Bag bag;
    addFailing(bag, &live);
    EXPECT_EQ(4, live);
    bag.clearContent();
    EXPECT_EQ(0, live);
    for (const unsigned int key : {0x401U, 0x402U, 0x403U, 0x404U}) {
        EXPECT_FALSE(isTaken(bag, key));
    }
}

TEST(ContainerContextClear, HappensInTheDestructor)
{
    int live = 0;
    {
        const BagRef bag(new Bag);
        addFailing(const_cast<Bag&>(*bag), &live);
    }
    EXPECT_EQ(0, live);
}

TEST(ContainerContextClear, HappensToReplacedContent)
{
    int live = 0;
    Bag source;
    source.add(sheep(), SHARED);
    Bag target;
    addFailing(target, &live);
    target = source;
    EXPECT_EQ(0, live);
    EXPECT_EQ(at(source, SHARED), at(target, SHARED));
}

// A shared object is destroyed with the last context that contains it.
TEST(ContainerContextClear, KeepsObjectsThatHaveOtherReferences)
{
    int live = 0;
    Bag one;
    one.add(RefCntObjectRef(new Item(&live, [] { throw 7; })), SHARED);
    {
        Bag two(one);
        one.clearContent();
        EXPECT_EQ(1, live);
        EXPECT_EQ(1U, at(two, SHARED)->refCount());
    }
    EXPECT_EQ(0, live);
}

TEST(ContainerContextClear, ReleasesOneReferenceOnly)
{
    Item owned;
    owned.acquireRef();
    Bag bag;
    bag.add(RefCntObjectRef(&owned), STAYS);
    EXPECT_EQ(2U, owned.refCount());
    bag.clearContent();
    EXPECT_EQ(1U, owned.refCount());
}

// A removed entry is a reference like any other.
TEST(ContainerContextDeathTest, RemovedObjectWhoseDestructorThrowsTerminates)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Bag bag;
            bag.add(RefCntObjectRef(new Item(nullptr, [] { throw 7; })), STAYS);
            bag.remove(STAYS);
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST(ContainerContext, CurrentIsThatOfTheThread)
{
    const ContainerContextRef current = ContainerContext::current();
    EXPECT_TRUE(current == ThreadState::current().contextRef.get());
    EXPECT_TRUE(current == Context::current());
    std::thread([&current] { EXPECT_TRUE(ContainerContext::current() != current); }).join();
}

}
