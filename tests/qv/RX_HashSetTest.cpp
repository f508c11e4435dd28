#include <qv/rtlapi/RX_HashSet_U.hpp>

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>

#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_SetModifier_U.hpp>

namespace {

/** Equal to every other key with its number, but distinguished by its label. */
struct Labelled
{
    int number;
    char label;

    bool operator==(const Labelled& other) const
    {
        return number == other.number;
    }
};

std::size_t RX_hash(const Labelled& key)
{
    return ::RX_hash(key.number);
}

/** All keys have the same hash. */
struct Colliding
{
    int number;

    bool operator==(const Colliding& other) const
    {
        return number == other.number;
    }
};

std::size_t RX_hash(const Colliding&)
{
    return 4;
}

template <typename Action>
int codeOf(Action action)
{
    try {
        action();
    } catch (const RX_ExError& error) {
        return error.getCode();
    }
    return 0;
}

template <typename T>
std::multiset<T> elementsOf(const RX_Set_U<T>& set)
{
    std::multiset<T> found;
    RX_SetIterator_U<T> iterator(set);
    for (T elem{}; iterator.next(elem);) {
        found.insert(elem);
    }
    return found;
}

TEST(RX_HashSet, AddReturnsWhetherTheSetChanged)
{
    RX_HashSet_U<RX_String> set;
    EXPECT_EQ(set.isEmpty(), 1);
    EXPECT_EQ(set.add("log.0"), 1);
    EXPECT_EQ(set.add("log.0"), 0);
    EXPECT_EQ(set.add("log.1"), 1);
    EXPECT_EQ(set.size(), 2U);
    EXPECT_EQ(set.isEmpty(), 0);
}

TEST(RX_HashSet, RemoveReturnsWhetherTheSetChanged)
{
    RX_HashSet_U<int> set;
    set.add(1);
    EXPECT_EQ(set.remove(2), 0);
    EXPECT_EQ(set.remove(1), 1);
    EXPECT_EQ(set.remove(1), 0);
    EXPECT_EQ(set.isEmpty(), 1);
}

TEST(RX_HashSet, ContainsAddedElements)
{
    RX_HashSet_U<RX_String> set(100);
    EXPECT_EQ(set.contains("a"), 0);
    set.add("a");
    set.add("");
    EXPECT_EQ(set.contains("a"), 1);
    EXPECT_EQ(set.contains(""), 1);
    EXPECT_EQ(set.contains("b"), 0);
}

TEST(RX_HashSet, GetCopiesTheElementOfTheSet)
{
    RX_HashSet_U<Labelled> set;
    set.add({1, 'x'});
    EXPECT_EQ(set.add({1, 'y'}), 0);

    Labelled found = {0, '-'};
    EXPECT_EQ(set.get({1, 'z'}, found), 1);
    EXPECT_EQ(found.number, 1);
    EXPECT_EQ(found.label, 'x');
    EXPECT_EQ(set.get({2, 'z'}, found), 0);
    EXPECT_EQ(found.label, 'x');
}

TEST(RX_HashSet, SetIsUsableAfterRemoveAll)
{
    RX_HashSet_U<int> set;
    set.add(1);
    set.add(2);
    set.removeAll();
    EXPECT_EQ(set.size(), 0U);
    EXPECT_EQ(set.contains(1), 0);
    EXPECT_EQ(set.add(1), 1);
}

TEST(RX_HashSet, KeysWithEqualHashesAreDistinct)
{
    RX_HashSet_U<Colliding> set;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(set.add({i}), 1);
    }
    EXPECT_EQ(set.remove({50}), 1);
    EXPECT_EQ(set.contains({49}), 1);
    EXPECT_EQ(set.contains({50}), 0);
    EXPECT_EQ(set.contains({51}), 1);
    EXPECT_EQ(set.size(), 99U);
}

TEST(RX_HashSet, KeepsItsElementsWhenItGrows)
{
    RX_HashSet_U<long> set;
    for (long i = 0; i < 100000; ++i) {
        ASSERT_EQ(set.add(i * 4096), 1);
    }
    EXPECT_EQ(set.size(), 100000U);
    for (long i = 0; i < 100000; ++i) {
        ASSERT_EQ(set.contains(i * 4096), 1);
        ASSERT_EQ(set.contains(i * 4096 + 1), 0);
    }
}

TEST(RX_HashSet, BehavesLikeAnOrderedSet)
{
    std::mt19937 random(20240521);
    RX_HashSet_U<RX_String> set;
    std::set<std::string> model;
    for (int step = 0; step < 200000; ++step) {
        const std::string key = "log." + std::to_string(random() % 700);
        const RX_String rxKey(key.c_str());
        switch (random() % 16) {
        case 0:
            if (random() % 200 == 0) {
                set.removeAll();
                model.clear();
            }
            break;
        case 1:
        case 2:
        case 3:
        case 4:
        case 5:
        case 6:
            ASSERT_EQ(set.add(rxKey), model.insert(key).second ? 1 : 0);
            break;
        case 7:
        case 8:
        case 9:
        case 10:
        case 11:
            ASSERT_EQ(set.remove(rxKey), model.erase(key) == 1 ? 1 : 0);
            break;
        default:
            ASSERT_EQ(set.contains(rxKey), model.count(key) == 1 ? 1 : 0);
            break;
        }
        ASSERT_EQ(set.size(), model.size());
        ASSERT_EQ(set.isEmpty(), model.empty() ? 1 : 0);
    }

    std::multiset<std::string> left;
    RX_SetIterator_U<RX_String> iterator(set);
    while (iterator.next()) {
        left.insert(iterator.current().data());
    }
    EXPECT_FALSE(model.empty());
    EXPECT_EQ(left, std::multiset<std::string>(model.begin(), model.end()));
}

TEST(RX_SetIterator, HasNoElementsInAnEmptySet)
{
    const RX_HashSet_U<int> set;
    RX_SetIterator_U<int> iterator(set);
    int elem = 7;
    EXPECT_EQ(iterator.next(), 0);
    EXPECT_EQ(iterator.next(elem), 0);
    EXPECT_EQ(elem, 7);
}

TEST(RX_SetIterator, ReturnsEachElementOnce)
{
    RX_HashSet_U<int> set;
    for (int i = 0; i < 50; ++i) {
        set.add(i);
    }
    std::multiset<int> expected;
    for (int i = 0; i < 50; ++i) {
        expected.insert(i);
    }
    EXPECT_EQ(elementsOf(set), expected);
}

TEST(RX_SetIterator, CurrentIsTheElementOfTheLastNext)
{
    RX_HashSet_U<RX_String> set;
    set.add("only");
    RX_SetIterator_U<RX_String> iterator(set);
    EXPECT_EQ(codeOf([&] { iterator.current(); }), 51488);
    EXPECT_EQ(iterator.next(), 1);
    EXPECT_EQ(iterator.current(), "only");
    EXPECT_EQ(iterator.current(), "only");
    EXPECT_EQ(iterator.next(), 0);
    EXPECT_EQ(codeOf([&] { iterator.current(); }), 51512);
    EXPECT_EQ(iterator.next(), 0);
}

TEST(RX_SetIterator, ModificationOfTheSetThrows51532)
{
    RX_HashSet_U<int> set;
    set.add(1);
    set.add(2);
    RX_SetIterator_U<int> iterator(set);
    EXPECT_EQ(iterator.next(), 1);

    EXPECT_EQ(set.add(1), 0);
    EXPECT_EQ(set.remove(3), 0);
    EXPECT_EQ(codeOf([&] { iterator.current(); }), 0);

    set.add(3);
    EXPECT_EQ(codeOf([&] { iterator.next(); }), 51532);
    EXPECT_EQ(codeOf([&] { iterator.current(); }), 51532);

    RX_SetIterator_U<int> afterRemove(set);
    set.remove(2);
    EXPECT_EQ(codeOf([&] { afterRemove.next(); }), 51532);

    RX_SetIterator_U<int> afterRemoveAll(set);
    set.removeAll();
    EXPECT_EQ(codeOf([&] { afterRemoveAll.next(); }), 51532);

    RX_SetIterator_U<int> ofEmpty(set);
    set.removeAll();
    EXPECT_EQ(ofEmpty.next(), 0);
}

TEST(RX_SetModifier, RemovesDuringTheIteration)
{
    RX_HashSet_U<int> set;
    for (int i = 0; i < 1000; ++i) {
        set.add(i);
    }
    int seen = 0;
    RX_SetModifier_U<int> modifier(set);
    for (int elem = 0; modifier.next(elem); ++seen) {
        if (elem % 3 != 0) {
            modifier.remove();
        }
    }
    EXPECT_EQ(seen, 1000);
    std::multiset<int> expected;
    for (int i = 0; i < 1000; i += 3) {
        expected.insert(i);
    }
    EXPECT_EQ(elementsOf(set), expected);
}

TEST(RX_SetModifier, CanRemoveEveryElement)
{
    RX_HashSet_U<RX_String> set;
    set.add("a");
    set.add("b");
    RX_SetModifier_U<RX_String> modifier(set);
    while (modifier.next()) {
        modifier.remove();
    }
    EXPECT_EQ(set.isEmpty(), 1);
}

TEST(RX_SetModifier, RemoveThrowsWithoutACurrentElement)
{
    RX_HashSet_U<int> set;
    set.add(1);
    set.add(2);
    RX_SetModifier_U<int> modifier(set);
    EXPECT_EQ(codeOf([&] { modifier.remove(); }), 51488);
    EXPECT_EQ(modifier.next(), 1);
    modifier.remove();
    EXPECT_EQ(codeOf([&] { modifier.remove(); }), 51488);
    EXPECT_EQ(modifier.next(), 1);
    EXPECT_EQ(modifier.next(), 0);
    EXPECT_EQ(codeOf([&] { modifier.remove(); }), 51512);
    EXPECT_EQ(set.size(), 1U);
}

TEST(RX_SetModifier, RemovalInvalidatesOtherIterators)
{
    RX_HashSet_U<int> set;
    set.add(1);
    RX_SetModifier_U<int> modifier(set);
    RX_SetModifier_U<int> other(set);
    EXPECT_EQ(modifier.next(), 1);
    EXPECT_EQ(other.next(), 1);
    modifier.remove();
    EXPECT_EQ(codeOf([&] { other.remove(); }), 51532);
    EXPECT_EQ(codeOf([&] { other.next(); }), 51532);
}

}
