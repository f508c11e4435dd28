#include <dalnim/type/RegExp.hpp>

#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <regex.h>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::type::RegExp;

static_assert(!std::is_copy_constructible_v<RegExp> && !std::is_copy_assignable_v<RegExp>);
static_assert(!std::is_default_constructible_v<RegExp>);
static_assert(!std::is_convertible_v<String, RegExp>);

bool matches(const String& expression, const String& text)
{
    return RegExp(expression).matches(text);
}

TEST(RegExp, MatchesAnywhere)
{
    EXPECT_TRUE(matches("b", "abc"));
    EXPECT_TRUE(matches("a.c", "xxabcxx"));
    EXPECT_FALSE(matches("a.c", "ac"));
    EXPECT_FALSE(matches("b", ""));
}

TEST(RegExp, AnchorsAreObeyed)
{
    EXPECT_TRUE(matches("^ab", "abc"));
    EXPECT_FALSE(matches("^b", "abc"));
    EXPECT_TRUE(matches("bc$", "abc"));
    EXPECT_FALSE(matches("b$", "abc"));
    EXPECT_TRUE(matches("^$", ""));
    EXPECT_FALSE(matches("^$", "x"));
}

TEST(RegExp, AcceptsExtendedSyntax)
{
    EXPECT_TRUE(matches("^(ab|cd)+$", "abcdab"));
    EXPECT_FALSE(matches("^(ab|cd)+$", "abc"));
    EXPECT_TRUE(matches("^a{2,3}$", "aaa"));
    EXPECT_FALSE(matches("^a{2,3}$", "aaaa"));
    EXPECT_TRUE(matches("^[[:digit:]]+\\.so$", "17.so"));
    EXPECT_TRUE(matches("colou?r", "color"));
}

TEST(RegExp, IsCaseSensitive)
{
    EXPECT_FALSE(matches("abc", "ABC"));
}

TEST(RegExp, NewlineIsAByteLikeAnyOther)
{
    EXPECT_TRUE(matches("a.c", "a\nc"));
    EXPECT_FALSE(matches("^b$", "a\nb\nc"));
}

TEST(RegExp, EmptyExpressionMatchesEverything)
{
    EXPECT_TRUE(matches("", ""));
    EXPECT_TRUE(matches("", "anything"));
    EXPECT_TRUE(matches(String("\0x", 2), "anything"));
}

TEST(RegExp, EndsAtTheFirstZeroByte)
{
    EXPECT_TRUE(matches(String("a$\0[", 4), "a"));
    EXPECT_TRUE(matches("a$", String("a\0b", 3)));
    EXPECT_FALSE(matches("b", String("a\0b", 3)));
}

/** Returns the error number and the message. */
std::pair<int, String> failure(const String& expression)
{
    try {
        RegExp regexp(expression);
        return {0, ""};
    } catch (const system_error& error) {
        return {error.error(), error.what()};
    }
}

typedef std::pair<int, String> Failure;

TEST(RegExp, BadExpressionThrowsNumberAndMessage)
{
    EXPECT_EQ(Failure(4, "Bad pattern: Invalid character class name, [[:no:]]"), failure("[[:no:]]"));
    EXPECT_EQ(Failure(5, "Bad pattern: Trailing backslash, a\\"), failure("a\\"));
    EXPECT_EQ(Failure(7, "Bad pattern: Unmatched [, [^, [:, [., or [=, [a"), failure("[a"));
    EXPECT_EQ(Failure(8, "Bad pattern: Unmatched ( or \\(, (a"), failure("(a"));
    EXPECT_EQ(Failure(9, "Bad pattern: Unmatched \\{, a{1"), failure("a{1"));
    EXPECT_EQ(Failure(10, "Bad pattern: Invalid content of \\{\\}, a{2,1}"), failure("a{2,1}"));
    EXPECT_EQ(Failure(11, "Bad pattern: Invalid range end, [b-a]"), failure("[b-a]"));
    EXPECT_EQ(Failure(13, "Bad pattern: Invalid preceding regular expression, *a"), failure("*a"));
    static_assert(REG_ECTYPE == 4 && REG_EESCAPE == 5 && REG_EBRACK == 7 && REG_EPAREN == 8);
    static_assert(REG_EBRACE == 9 && REG_BADBR == 10 && REG_ERANGE == 11 && REG_BADRPT == 13);
}

TEST(RegExp, MessageOfTheFailureIsFolded)
{
    const String expression = String(70, 'x') + "(";
    EXPECT_EQ(Failure(8, "Bad pattern: Unmatched ( or \\(,\n" + expression), failure(expression));
}

TEST(RegExp, TraceEndsInTheConstructor)
{
    try {
        RegExp regexp("(");
        FAIL();
    } catch (const system_error& error) {
        EXPECT_EQ(0U, error.toString().find("com.kor.dal.nim.type.RegExp.RegExp():")) << error.toString();
    }
}

TEST(RegExp, ManyThreadsMayUseOneObject)
{
    const RegExp regexp("^(a|b)*c[0-9]+$");
    std::vector<std::thread> threads;
    std::vector<int> rounds(4);
    for (int& round : rounds) {
        threads.emplace_back([&] {
            while (round < 1000 && regexp.matches("abbac17") && !regexp.matches("abbad17")) {
                ++round;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::vector<int>(4, 1000), rounds);
}

}
