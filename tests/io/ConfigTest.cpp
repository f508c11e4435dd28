#include <dalnim/io/Config.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <type_traits>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Config;
using com::kor::dal::nim::io::Properties;
using testing::ElementsAre;
using testing::Pair;

static_assert(std::is_default_constructible_v<Config> && std::is_copy_constructible_v<Config>);
static_assert(!std::is_copy_assignable_v<Config> && !std::is_polymorphic_v<Config>);
static_assert(std::is_same_v<const String, decltype(Config::STR_TRUE)>);
static_assert(std::is_same_v<const String, decltype(Config::STR_FALSE)>);

std::map<String, String> settingsOf(const char* id, const char* text, bool deep = false)
{
    std::istringstream stream(text);
    const Properties table(stream);
    const std::unique_ptr<Properties> settings(Config::getDefaultedProperties(table, id, deep));
    return std::map<String, String>(settings->begin(), settings->end());
}

TEST(Config, BooleansAreTrueAndFalse)
{
    EXPECT_STREQ("true", Config::VAL_TRUE);
    EXPECT_STREQ("false", Config::VAL_FALSE);
    const Config config;
    EXPECT_EQ("true", config.STR_TRUE);
    EXPECT_EQ("false", config.STR_FALSE);
    const Config copy(config);
    EXPECT_EQ("true", copy.STR_TRUE);
    EXPECT_EQ("false", copy.STR_FALSE);
    EXPECT_STREQ("Config", Config::CLASS_NAME);
}

TEST(Config, SpecificPrecedesWildcardPrecedesGlobal)
{
    const char* const all = "/a=1\n*/a=2\nx/a=3\ny/a=4\n";
    for (const bool deep : {false, true}) {
        EXPECT_THAT(settingsOf("x", all, deep), ElementsAre(Pair("a", "3")));
        EXPECT_THAT(settingsOf("z", all, deep), ElementsAre(Pair("a", "2")));
    }
    EXPECT_THAT(settingsOf("z", "/a=1\nx/a=3\ny/a=4\n"), ElementsAre(Pair("a", "1")));
    EXPECT_THAT(settingsOf("y", "y/a=4\n*/a=2\n/a=1\n"), ElementsAre(Pair("a", "4")));
}

TEST(Config, PrecedenceAppliesToEachKey)
{
    EXPECT_THAT(settingsOf("x", "/a=1\n/b=1\n/c=1\n*/b=2\n*/c=2\nx/c=3\n"),
                ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("c", "3")));
}

TEST(Config, OnlyTheFirstPrefixIsRemoved)
{
    EXPECT_THAT(settingsOf("x", "x/b/c=1\nx/x/d=2\n"), ElementsAre(Pair("b/c", "1"), Pair("x/d", "2")));
    EXPECT_THAT(settingsOf("x/b", "x/b/c=1\n"), ElementsAre(Pair("c", "1")));
}

TEST(Config, OtherKeysAreOmitted)
{
    EXPECT_TRUE(settingsOf("x", "a=1\ny/a=2\nxx/a=3\nx=4\n*a=5\n*=6\n").empty());
}

TEST(Config, EmptyIdGivesGlobalKeysPrecedence)
{
    EXPECT_THAT(settingsOf("", "/a=1\n*/a=2\n*/b=2\n"), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST(Config, NoMatchReturnsAnEmptyTable)
{
    const std::unique_ptr<Properties> settings(Config::getDefaultedProperties(Properties(), "x"));
    ASSERT_NE(nullptr, settings);
    EXPECT_TRUE(settings->empty());
}

TEST(Config, KeyEqualToAPrefixThrows)
{
    for (const char* const text : {"*/=1\n", "/=1\n", "x/=1\n"}) {
        try {
            settingsOf("x", text);
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ("empty key not allowed", e.what());
        }
    }
    EXPECT_TRUE(settingsOf("x", "y/=1\n").empty());
}

}
