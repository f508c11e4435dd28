#include <dalnim/io/Properties.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;
using testing::ElementsAre;
using testing::Pair;

typedef std::unique_ptr<Properties> Owned;
typedef std::vector<std::pair<String, String>> Pairs;

static_assert(!std::is_copy_assignable_v<Properties>);
static_assert(!std::is_move_assignable_v<Properties>);
static_assert(!std::is_polymorphic_v<Properties>);
static_assert(!std::is_convertible_v<std::istream&, Properties>);
static_assert(std::is_constructible_v<Properties, std::istream&, bool>);
static_assert(!std::is_constructible_v<Properties, std::istream&, const char*>);
static_assert(!std::is_constructible_v<Properties, std::istream&, const char (&)[5]>);

template <typename Path>
using LoadWith =
    decltype(std::declval<Properties&>().load(std::declval<std::istream&>(), std::declval<Path>()));
template <typename Path, typename = void>
constexpr bool canLoadWith = false;
template <typename Path>
constexpr bool canLoadWith<Path, std::void_t<LoadWith<Path>>> = true;
static_assert(canLoadWith<bool> && canLoadWith<int>);
static_assert(!canLoadWith<const char (&)[5]> && !canLoadWith<char*>);

static_assert(Properties::SEV_ERROR == 0 && Properties::SEV_WARNING == 1 && Properties::SEV_NOTE == 2);

Pairs pairsOf(const Properties& table)
{
    return Pairs(table.begin(), table.end());
}

template <typename Call>
String messageOf(Call call)
{
    try {
        call();
    } catch (const std::invalid_argument& e) {
        return e.what();
    }
    return "nothing thrown";
}

Properties database()
{
    Properties table;
    table.setProperty("db.host", "h");
    table.setProperty("db.port", "1");
    table.setProperty("dbx", "x");
    table.setProperty("db", "d");
    return table;
}

TEST(Properties, StartsEmpty)
{
    const Properties table;
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(0u, table.size());
    EXPECT_EQ("com.kor.dal.nim.io.Properties",
              String(com::kor::dal::nim::io::NAMESPACE_NAME) + "." + Properties::CLASS_NAME);
}

TEST(Properties, SetAndGet)
{
    Properties table;
    table.setProperty("k", "v");
    EXPECT_EQ("v", table.getProperty("k"));
    EXPECT_TRUE(table.containsKey("k"));
    EXPECT_FALSE(table.containsKey("K"));
    EXPECT_FALSE(table.empty());
    EXPECT_EQ(1u, table.size());

    table.setProperty("k", "w");
    EXPECT_EQ("w", table.getProperty("k"));
    EXPECT_EQ(1u, table.size());
}

TEST(Properties, SetFromItself)
{
    Properties table;
    table.setProperty("k", "a value that is too long for the string's own space");
    table.setProperty("k", table.getProperty("k"));
    EXPECT_EQ("a value that is too long for the string's own space", table.getProperty("k"));
    table.setProperty("l", table.getProperty("k"));
    EXPECT_EQ("a value that is too long for the string's own space", table.getProperty("l"));
}

TEST(Properties, EmptyValueIsStored)
{
    Properties table;
    table.setProperty("k", "");
    EXPECT_TRUE(table.containsKey("k"));
    EXPECT_EQ("", table.getProperty("k"));
    EXPECT_EQ("", table.getProperty("k", "default"));
}

TEST(Properties, EmptyKeyThrows)
{
    Properties table;
    table.setProperty("k", "v");
    EXPECT_EQ("empty key not allowed", messageOf([&table] { table.setProperty("", "x"); }));
    EXPECT_THAT(pairsOf(table), ElementsAre(Pair("k", "v")));
}

TEST(Properties, MissingKeyReturnsTheDefaultItself)
{
    const Properties table;
    const String fallback("fallback");
    EXPECT_EQ(&fallback, &table.getProperty("k", fallback));
}

TEST(Properties, MissingKeyReturnsAnEmptyStringOfTheTable)
{
    Properties table;
    const String& first = table.getProperty("k");
    EXPECT_EQ("", first);
    table.setProperty("k", "v");
    EXPECT_EQ("", first);
    EXPECT_EQ(&first, &table.getProperty("other"));

    const Properties second;
    EXPECT_NE(&first, &second.getProperty("k"));
}

TEST(Properties, KeysAreSortedByUnsignedBytes)
{
    Properties table;
    for (const char* const key : {"\xff", "b", "a", "ab", "\x7f", "B", "a!"}) {
        table.setProperty(key, "");
    }
    EXPECT_THAT(pairsOf(table), ElementsAre(Pair("B", ""), Pair("a", ""), Pair("a!", ""), Pair("ab", ""),
                                            Pair("b", ""), Pair("\x7f", ""), Pair("\xff", "")));
}

TEST(Properties, ZeroBytesAreSignificant)
{
    Properties table;
    table.setProperty(String("a\0", 2), String("\0", 1));
    EXPECT_FALSE(table.containsKey("a"));
    EXPECT_EQ(String("\0", 1), table.getProperty(String("a\0", 2)));
}

TEST(Properties, CopyIsIndependent)
{
    const Properties table = database();
    for (const bool deep : {false, true}) {
        Properties copy(table, deep);
        EXPECT_EQ(pairsOf(table), pairsOf(copy));
        copy.setProperty("db", "changed");
        EXPECT_EQ("d", table.getProperty("db"));
    }
    const Properties plain(table);
    EXPECT_EQ(pairsOf(table), pairsOf(plain));
}

TEST(Properties, AddAllReplacesAndInserts)
{
    for (const bool deep : {false, true}) {
        Properties table;
        table.setProperty("a", "1");
        table.setProperty("c", "3");
        Properties other;
        other.setProperty("b", "2");
        other.setProperty("c", "4");
        other.setProperty("d", String("\0", 1));
        EXPECT_EQ(&table, &table.addAll(other, deep));
        EXPECT_THAT(pairsOf(table),
                    ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("c", "4"), Pair("d", String("\0", 1))));
        EXPECT_EQ(3u, other.size());
    }
}

TEST(Properties, AddAllCopiesTheEmptyKeyToo)
{
    std::istringstream text("=v");
    const Properties source(text);
    Properties table;
    table.addAll(source);
    EXPECT_TRUE(table.containsKey(""));
    EXPECT_EQ("v", table.getProperty(""));
}

TEST(Properties, AddAllOntoItselfChangesNothing)
{
    for (const bool deep : {false, true}) {
        Properties table = database();
        table.setProperty("long", String(100, 'x'));
        const Pairs before = pairsOf(table);
        table.addAll(table, deep);
        EXPECT_EQ(before, pairsOf(table));
    }
}

TEST(PropertiesSelection, RemovesThePrefix)
{
    const Properties table = database();
    const Owned selected(table.getProperties("db.", true, false));
    EXPECT_THAT(pairsOf(*selected), ElementsAre(Pair("host", "h"), Pair("port", "1")));
    const Owned by_default(table.getProperties("db."));
    EXPECT_EQ(pairsOf(*selected), pairsOf(*by_default));
    const Owned deep(table.getProperties("db.", true, true));
    EXPECT_EQ(pairsOf(*selected), pairsOf(*deep));
}

TEST(PropertiesSelection, KeepsWholeKeys)
{
    const Owned selected(database().getProperties("db.", false, false));
    EXPECT_THAT(pairsOf(*selected), ElementsAre(Pair("db.host", "h"), Pair("db.port", "1")));
}

TEST(PropertiesSelection, NoMatchReturnsAnEmptyTable)
{
    const Properties table = database();
    for (const char* const prefix : {"a", "db.hostess", "db.i", "e", "\xff"}) {
        const Owned selected(table.getProperties(prefix));
        ASSERT_NE(nullptr, selected);
        EXPECT_TRUE(selected->empty()) << prefix;
    }
}

TEST(PropertiesSelection, PrefixOfTheHighestByteMatches)
{
    Properties table;
    table.setProperty("\xff\xff", "1");
    table.setProperty("\xff\xff\xff", "2");
    table.setProperty("\xfe", "3");
    const Owned selected(table.getProperties("\xff", true));
    EXPECT_THAT(pairsOf(*selected), ElementsAre(Pair("\xff", "1"), Pair("\xff\xff", "2")));
}

TEST(PropertiesSelection, KeyEqualToThePrefixThrowsIfStripped)
{
    Properties table = database();
    table.setProperty("db.", "dot");
    EXPECT_EQ("empty key not allowed", messageOf([&table] { table.getProperties("db.", true, false); }));
    EXPECT_EQ(5u, table.size());

    const Owned whole(table.getProperties("db.", false, false));
    EXPECT_THAT(pairsOf(*whole), ElementsAre(Pair("db.", "dot"), Pair("db.host", "h"), Pair("db.port", "1")));
}

TEST(PropertiesSelection, EmptyPrefixIsAFullCopy)
{
    const Properties table = database();
    for (const bool strip : {false, true}) {
        const Owned selected(table.getProperties("", strip, false));
        EXPECT_EQ(pairsOf(table), pairsOf(*selected));
    }
}

TEST(PropertiesSelection, EmptyPrefixAndEmptyKeyThrowsIfStripped)
{
    std::istringstream text("=v\nk=w\n");
    const Properties table(text);
    ASSERT_EQ(2u, table.size());
    for (const bool strip : {false, true}) {
        EXPECT_EQ("empty key not allowed",
                  messageOf([&table, strip] { table.getProperties("", strip, false); }));
    }
    const Owned other(table.getProperties("k", false));
    EXPECT_THAT(pairsOf(*other), ElementsAre(Pair("k", "w")));
}

TEST(PropertiesSelection, LaterPrefixTakesPrecedence)
{
    Properties table;
    table.setProperty("a.x", "1");
    table.setProperty("a.y", "1");
    table.setProperty("b.x", "2");
    table.setProperty("b.z", "2");
    const String a("a.");
    const String b("b.");
    const String* ab[] = {&a, &b};
    const Owned b_wins(table.getProperties(ab, 2));
    EXPECT_THAT(pairsOf(*b_wins), ElementsAre(Pair("x", "2"), Pair("y", "1"), Pair("z", "2")));
    const String* ba[] = {&b, &a};
    const Owned a_wins(table.getProperties(ba, 2, true, true));
    EXPECT_THAT(pairsOf(*a_wins), ElementsAre(Pair("x", "1"), Pair("y", "1"), Pair("z", "2")));
    const Owned first_only(table.getProperties(ab, 1));
    EXPECT_THAT(pairsOf(*first_only), ElementsAre(Pair("x", "1"), Pair("y", "1")));
    const Owned whole(table.getProperties(ab, 2, false));
    EXPECT_EQ(pairsOf(table), pairsOf(*whole));
    const String* twice[] = {&a, &a};
    const Owned once(table.getProperties(twice, 2));
    EXPECT_THAT(pairsOf(*once), ElementsAre(Pair("x", "1"), Pair("y", "1")));
}

TEST(PropertiesSelection, NullListsAndPrefixesThrow)
{
    Properties table = database();
    EXPECT_EQ("null prefix list not allowed",
              messageOf([&table] { table.getProperties(static_cast<const String**>(nullptr), 1); }));

    const String prefix("db.");
    const String* hole[] = {&prefix, nullptr, &prefix};
    EXPECT_EQ("null prefix not allowed", messageOf([&] { table.getProperties(hole, 3); }));
    const Owned before_the_hole(table.getProperties(hole, 1));
    EXPECT_EQ(2u, before_the_hole->size());

    // The entries are checked one after another.
    table.setProperty("db.", "");
    EXPECT_EQ("empty key not allowed", messageOf([&] { table.getProperties(hole, 3); }));
    const String* hole_first[] = {nullptr, &prefix};
    EXPECT_EQ("null prefix not allowed", messageOf([&] { table.getProperties(hole_first, 2); }));
}

TEST(PropertiesSelection, EmptyListReturnsAnEmptyTable)
{
    const Properties table = database();
    const Owned none(table.getProperties(static_cast<const String**>(nullptr), 0));
    ASSERT_NE(nullptr, none);
    EXPECT_TRUE(none->empty());
    const String* unread[] = {nullptr};
    const Owned still_none(table.getProperties(unread, 0, true, true));
    EXPECT_TRUE(still_none->empty());
}

}
