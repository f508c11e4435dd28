#include <dalnim/io/Properties.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <type_traits>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;

typedef Properties::Iterator Iterator;
typedef Properties::ConstIterator ConstIterator;

static_assert(std::is_default_constructible_v<Iterator> && std::is_default_constructible_v<ConstIterator>);
static_assert(std::is_copy_constructible_v<Iterator> && std::is_copy_constructible_v<ConstIterator>);
static_assert(std::is_copy_assignable_v<Iterator> && std::is_copy_assignable_v<ConstIterator>);

static_assert(
    std::is_convertible_v<Iterator, ConstIterator> && std::is_assignable_v<ConstIterator&, Iterator>);
static_assert(
    !std::is_constructible_v<Iterator, ConstIterator> && !std::is_assignable_v<Iterator&, ConstIterator>);

typedef std::map<String, String> Map;
static_assert(!std::is_constructible_v<Iterator, Map::iterator>);
static_assert(!std::is_constructible_v<ConstIterator, Map::const_iterator>);
static_assert(!std::is_constructible_v<ConstIterator, Map::iterator>);

typedef std::pair<const String, String> Property;
static_assert(std::is_same_v<Property&, decltype(*std::declval<Iterator>())>);
static_assert(std::is_same_v<Property*, decltype(std::declval<Iterator>().operator->())>);
static_assert(std::is_same_v<const Property&, decltype(*std::declval<ConstIterator>())>);
static_assert(std::is_same_v<const Property*, decltype(std::declval<ConstIterator>().operator->())>);
static_assert(std::is_same_v<Property, std::iterator_traits<ConstIterator>::value_type>);
static_assert(std::is_same_v<std::forward_iterator_tag, std::iterator_traits<Iterator>::iterator_category>);

static_assert(std::is_same_v<Iterator, decltype(std::declval<Properties&>().begin())>);
static_assert(std::is_same_v<Iterator, decltype(std::declval<Properties&>().end())>);
static_assert(std::is_same_v<ConstIterator, decltype(std::declval<const Properties&>().begin())>);
static_assert(std::is_same_v<ConstIterator, decltype(std::declval<const Properties&>().end())>);

class PropertiesIterators : public testing::Test
{
protected:
    PropertiesIterators()
    {
        table.setProperty("b", "2");
        table.setProperty("a", "1");
        table.setProperty("c", "3");
    }

    Properties table;
    const Properties& reading = table;
};

TEST_F(PropertiesIterators, IterateInTheOrderOfKeys)
{
    Iterator it = table.begin();
    EXPECT_EQ("a", it->first);
    EXPECT_EQ("1", (*it).second);
    EXPECT_EQ("b", (++it)->first);
    EXPECT_EQ("b", it++->first);
    EXPECT_EQ("c", it->first);
    EXPECT_EQ(&table.getProperty("c"), &it->second);
    EXPECT_TRUE(++it == table.end());

    ConstIterator reader = reading.begin();
    EXPECT_EQ("a", reader->first);
    EXPECT_EQ("b", (++reader)->first);
    EXPECT_EQ("b", (reader++)->first);
    EXPECT_EQ("3", (*reader).second);
    EXPECT_TRUE(++reader == reading.end());
}

TEST_F(PropertiesIterators, BeginOfAnEmptyTableIsEnd)
{
    Properties none;
    EXPECT_TRUE(none.begin() == none.end());
    const Properties& still_none = none;
    EXPECT_TRUE(still_none.begin() == still_none.end());
}

TEST_F(PropertiesIterators, CompareByPositionAcrossKinds)
{
    const Iterator a = table.begin();
    const Iterator same_a = table.begin();
    const Iterator b = ++table.begin();
    const ConstIterator read_a = reading.begin();
    const ConstIterator same_read_a = reading.begin();
    const ConstIterator read_b = ++reading.begin();

    EXPECT_TRUE(a == same_a);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a == read_a);
    EXPECT_FALSE(a == read_b);
    EXPECT_TRUE(read_a == a);
    EXPECT_FALSE(read_b == a);
    EXPECT_TRUE(read_a == same_read_a);
    EXPECT_FALSE(read_a == read_b);

    EXPECT_FALSE(a != same_a);
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(a != read_a);
    EXPECT_TRUE(a != read_b);
    EXPECT_FALSE(read_a != a);
    EXPECT_TRUE(read_b != a);
    EXPECT_FALSE(read_a != same_read_a);
    EXPECT_TRUE(read_a != read_b);
}

TEST_F(PropertiesIterators, WriteTheValue)
{
    for (Iterator it = table.begin(); it != table.end(); ++it) {
        it->second += "0";
    }
    for (auto& [key, value] : table) {
        value += key;
    }
    EXPECT_EQ("10a", table.getProperty("a"));
    EXPECT_EQ("20b", table.getProperty("b"));
    EXPECT_EQ("30c", table.getProperty("c"));
}

TEST_F(PropertiesIterators, AssignAndConvert)
{
    Iterator it;
    it = table.begin();
    ConstIterator reader;
    reader = it;
    EXPECT_TRUE(reader == reading.begin());
    ++it;
    EXPECT_TRUE(reader == reading.begin());
    const ConstIterator other(it);
    EXPECT_EQ("b", other->first);
    reader = other;
    EXPECT_EQ("2", reader->second);
}

TEST_F(PropertiesIterators, StayValidWhenOtherPropertiesChange)
{
    const Iterator b = ++table.begin();
    table.setProperty("aa", "");
    table.setProperty("b", "changed");
    EXPECT_EQ("changed", b->second);
}

TEST_F(PropertiesIterators, WorkWithStandardAlgorithms)
{
    EXPECT_EQ(3, std::distance(table.begin(), table.end()));
    const ConstIterator found = std::find_if(reading.begin(), reading.end(),
                                             [](const Property& property) { return property.second == "2"; });
    EXPECT_EQ("b", found->first);
    EXPECT_EQ("c", std::max_element(table.begin(), table.end())->first);
}

}
