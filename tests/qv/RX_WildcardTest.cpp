#include <qv/rtlapi/RX_Wildcard.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <regex.h>

#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>

namespace {

qv_bool_t wild(const char* pattern, const char* text)
{
    return RX_Wildcard(pattern, RX_Wildcard::WILD).matches(text);
}

qv_bool_t regexp(const char* pattern, const char* text)
{
    return RX_Wildcard(pattern, RX_Wildcard::REGEXP).matches(text);
}

int codeOf(const RX_String& pattern, RX_Wildcard::Style style)
{
    try {
        const RX_Wildcard compiled(pattern, style);
    } catch (const RX_ExWarning&) {
        return -1;
    } catch (const RX_ExError& error) {
        return error.getCode();
    }
    return 0;
}

TEST(RX_Wildcard, StylesHaveTheirDocumentedValues)
{
    EXPECT_EQ(static_cast<int>(RX_Wildcard::WILD), 0);
    EXPECT_EQ(static_cast<int>(RX_Wildcard::REGEXP), 1);
}

TEST(RX_WildcardWild, PatternWithoutWildcardsMatchesOnlyItself)
{
    EXPECT_EQ(wild("abc", "abc"), 1);
    EXPECT_EQ(wild("abc", "abcd"), 0);
    EXPECT_EQ(wild("abc", "xabc"), 0);
    EXPECT_EQ(wild("abc", "ab"), 0);
    EXPECT_EQ(wild("abc", "ABC"), 0);
    EXPECT_EQ(wild("abc", ""), 0);
}

TEST(RX_WildcardWild, EmptyPatternMatchesOnlyTheEmptyString)
{
    EXPECT_EQ(wild("", ""), 1);
    EXPECT_EQ(wild("", "a"), 0);
}

TEST(RX_WildcardWild, StarMatchesAnyNumberOfBytes)
{
    EXPECT_EQ(wild("*", ""), 1);
    EXPECT_EQ(wild("*", "any/.thing"), 1);
    EXPECT_EQ(wild("a*", "a"), 1);
    EXPECT_EQ(wild("a*c", "abbc"), 1);
    EXPECT_EQ(wild("a*c", "abcb"), 0);
    EXPECT_EQ(wild("*.log", "x.log"), 1);
    EXPECT_EQ(wild("*.log", "x.log.0"), 0);
    EXPECT_EQ(wild("*ab*ba*", "aba"), 0);
    EXPECT_EQ(wild("*ab*ba*", "abba"), 1);
    EXPECT_EQ(wild("a**b", "ab"), 1);
    EXPECT_EQ(wild("*aab", "aaab"), 1);
}

TEST(RX_WildcardWild, QuestionMarkMatchesOneByte)
{
    EXPECT_EQ(wild("a?c", "abc"), 1);
    EXPECT_EQ(wild("a?c", "a/c"), 1);
    EXPECT_EQ(wild("a?c", "ac"), 0);
    EXPECT_EQ(wild("?", ""), 0);
    EXPECT_EQ(wild("*?", ""), 0);
    EXPECT_EQ(wild("*?", "x"), 1);
    EXPECT_EQ(wild("?", "\xff"), 1);
}

TEST(RX_WildcardWild, SetMatchesOneOfItsBytes)
{
    EXPECT_EQ(wild("[abc]", "b"), 1);
    EXPECT_EQ(wild("[abc]", "d"), 0);
    EXPECT_EQ(wild("[abc]", "ab"), 0);
    EXPECT_EQ(wild("[a-cx]", "c"), 1);
    EXPECT_EQ(wild("[a-cx]", "x"), 1);
    EXPECT_EQ(wild("[a-cx]", "-"), 0);
    EXPECT_EQ(wild("[\x80-\xff]", "\xc3"), 1);
    EXPECT_EQ(wild("[\x80-\xff]", "a"), 0);
    EXPECT_EQ(wild("[a-a]", "a"), 1);
}

TEST(RX_WildcardWild, SetCanBeNegated)
{
    EXPECT_EQ(wild("[!abc]", "b"), 0);
    EXPECT_EQ(wild("[!abc]", "d"), 1);
    EXPECT_EQ(wild("[^a-c]", "b"), 0);
    EXPECT_EQ(wild("[^a-c]", "d"), 1);
    EXPECT_EQ(wild("[!a]", ""), 0);
    EXPECT_EQ(wild("[a!]", "!"), 1);
    EXPECT_EQ(wild("[a^]", "^"), 1);
    EXPECT_EQ(wild("[!!]", "!"), 0);
}

TEST(RX_WildcardWild, LeadingBracketAndOuterDashesAreLiteralInASet)
{
    EXPECT_EQ(wild("[]]", "]"), 1);
    EXPECT_EQ(wild("[]a]", "a"), 1);
    EXPECT_EQ(wild("[!]]", "]"), 0);
    EXPECT_EQ(wild("[!]]", "a"), 1);
    EXPECT_EQ(wild("[-a]", "-"), 1);
    EXPECT_EQ(wild("[a-]", "-"), 1);
    EXPECT_EQ(wild("[a-]", "b"), 0);
    EXPECT_EQ(wild("[a\\]b]", "]"), 1);
    EXPECT_EQ(wild("[a\\-c]", "b"), 0);
    EXPECT_EQ(wild("[a\\-c]", "-"), 1);
    EXPECT_EQ(wild("[\\\\]", "\\"), 1);
    EXPECT_EQ(wild("[*?<]", "?"), 1);
    EXPECT_EQ(wild("]", "]"), 1);
}

TEST(RX_WildcardWild, NumberMatchesDigits)
{
    EXPECT_EQ(wild("log.<->", "log.0"), 1);
    EXPECT_EQ(wild("log.<->", "log.0123456789"), 1);
    EXPECT_EQ(wild("log.<->", "log."), 0);
    EXPECT_EQ(wild("log.<->", "log.1a"), 0);
    EXPECT_EQ(wild("log.<->", "log.a1"), 0);
    EXPECT_EQ(wild("log.<->", "log.-1"), 0);
    EXPECT_EQ(wild("log.<->", "log.1.2"), 0);
    EXPECT_EQ(wild("<->", "/"), 0);
    EXPECT_EQ(wild("<->", ":"), 0);
}

TEST(RX_WildcardWild, NumberYieldsDigitsToLaterTokens)
{
    EXPECT_EQ(wild("<->5", "155"), 1);
    EXPECT_EQ(wild("<->5", "5"), 0);
    EXPECT_EQ(wild("<-><->", "12"), 1);
    EXPECT_EQ(wild("<-><->", "1"), 0);
    // The first number must match two digits, although the next tokens also match after one.
    EXPECT_EQ(wild("<->[0-9]?<->", "123a4"), 1);
    EXPECT_EQ(wild("*<->*", "a"), 0);
    EXPECT_EQ(wild("*<->x", "ab12x"), 1);
    EXPECT_EQ(wild("a*<->1*b", "a11b"), 1);
    EXPECT_EQ(wild("a*<->1*b", "a1b"), 0);
}

TEST(RX_WildcardWild, AnglesThatDoNotFormANumberAreLiteral)
{
    EXPECT_EQ(wild("<", "<"), 1);
    EXPECT_EQ(wild("<-", "<-"), 1);
    EXPECT_EQ(wild("<1-9>", "<1-9>"), 1);
    EXPECT_EQ(wild("a->b", "a->b"), 1);
    EXPECT_EQ(wild("\\<->", "<->"), 1);
    EXPECT_EQ(wild("\\<->", "1"), 0);
}

TEST(RX_WildcardWild, BackslashMakesTheNextByteLiteral)
{
    EXPECT_EQ(wild("\\*", "*"), 1);
    EXPECT_EQ(wild("\\*", "a"), 0);
    EXPECT_EQ(wild("\\?", "?"), 1);
    EXPECT_EQ(wild("\\[a]", "[a]"), 1);
    EXPECT_EQ(wild("\\[a]", "a"), 0);
    EXPECT_EQ(wild("\\\\", "\\"), 1);
    EXPECT_EQ(wild("\\a", "a"), 1);
}

TEST(RX_WildcardWild, MalformedPatternThrowsEINVAL)
{
    EXPECT_EQ(codeOf("[", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("a[bc", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("[]", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("[!]", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("[a-", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("[a\\]", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("[\\", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("abc\\", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("[b-a]", RX_Wildcard::WILD), 22);
    EXPECT_EQ(codeOf("[a]", RX_Wildcard::WILD), 0);
}

TEST(RX_WildcardWild, ManyWildcardsTakeBoundedTime)
{
    std::string pattern;
    for (int i = 0; i < 100; ++i) {
        pattern += "a*";
    }
    pattern += "b";
    const std::string text(20000, 'a');
    EXPECT_EQ(wild(pattern.c_str(), text.c_str()), 0);
    EXPECT_EQ(wild(pattern.c_str(), (text + "b").c_str()), 1);

    std::string numbers;
    for (int i = 0; i < 100; ++i) {
        numbers += "<->";
    }
    const std::string digits(20000, '1');
    EXPECT_EQ(wild((numbers + "x").c_str(), digits.c_str()), 0);
    EXPECT_EQ(wild(numbers.c_str(), digits.c_str()), 1);
    EXPECT_EQ(wild(numbers.c_str(), std::string(99, '1').c_str()), 0);
}

TEST(RX_WildcardWild, LongPatternsMatch)
{
    for (const std::size_t length : {254U, 255U, 256U, 257U, 5000U}) {
        const std::string pattern(length, '?');
        EXPECT_EQ(wild(pattern.c_str(), std::string(length, 'x').c_str()), 1) << length;
        EXPECT_EQ(wild(pattern.c_str(), std::string(length - 1, 'x').c_str()), 0) << length;
        EXPECT_EQ(wild(pattern.c_str(), std::string(length + 1, 'x').c_str()), 0) << length;
        EXPECT_EQ(wild((pattern + "*").c_str(), std::string(length + 1, 'x').c_str()), 1) << length;
    }
}

/** A backtracking matcher of the tokens from `index` on. */
bool matchesByBacktracking(const std::vector<std::string>& pattern, std::size_t index, const char* text)
{
    if (index == pattern.size()) {
        return *text == '\0';
    }
    const std::string& token = pattern[index];
    if (token == "*") {
        for (;; ++text) {
            if (matchesByBacktracking(pattern, index + 1, text)) {
                return true;
            }
            if (*text == '\0') {
                return false;
            }
        }
    }
    if (token == "<->") {
        for (; *text >= '0' && *text <= '9'; ++text) {
            if (matchesByBacktracking(pattern, index + 1, text + 1)) {
                return true;
            }
        }
        return false;
    }
    if (*text == '\0') {
        return false;
    }
    const bool isAccepted = token == "?" || token[0] == *text || (token == "[!a]" && *text != 'a')
                            || (token == "[a1]" && (*text == 'a' || *text == '1'));
    return isAccepted && matchesByBacktracking(pattern, index + 1, text + 1);
}

TEST(RX_WildcardWild, AgreesWithABacktrackingMatcher)
{
    const std::vector<std::string> tokens = {"a", "b", "1", "2", "?", "*", "<->", "[a1]", "[!a]"};
    const std::string alphabet = "ab12";
    std::mt19937 random(7);
    int matched = 0;
    for (int round = 0; round < 200000; ++round) {
        std::vector<std::string> pattern;
        std::string joined;
        for (std::size_t i = random() % 8; i > 0; --i) {
            pattern.push_back(tokens[random() % tokens.size()]);
            joined += pattern.back();
        }
        std::string text;
        for (std::size_t i = random() % 10; i > 0; --i) {
            text += alphabet[random() % alphabet.size()];
        }
        const bool expected = matchesByBacktracking(pattern, 0, text.c_str());
        matched += expected ? 1 : 0;
        ASSERT_EQ(wild(joined.c_str(), text.c_str()), expected ? 1 : 0) << joined << " on " << text;
    }
    EXPECT_GT(matched, 10000);
}

TEST(RX_WildcardQuote, EscapesWildcardsByBackslashes)
{
    EXPECT_EQ(RX_Wildcard::quote("plain-1.log]>"), "plain-1.log]>");
    EXPECT_EQ(RX_Wildcard::quote("a*b?c[d]<->\\e"), "a\\*b\\?c\\[d]\\<->\\\\e");
    EXPECT_EQ(RX_Wildcard::quote(""), "");
}

TEST(RX_WildcardQuote, ResultMatchesOnlyTheString)
{
    const char* const text = "a*b?[c-d]<->\\!^";
    const RX_Wildcard quoted(RX_Wildcard::quote(text), RX_Wildcard::WILD);
    EXPECT_EQ(quoted.matches(text), 1);
    EXPECT_EQ(quoted.matches("aXbY[c-d]<->\\!^"), 0);
    EXPECT_EQ(quoted.matches("a*b?c<->\\!^"), 0);
    EXPECT_EQ(quoted.matches("a*b?[c-d]7\\!^"), 0);
}

TEST(RX_WildcardRegexp, MatchesAnywhereUnlessAnchored)
{
    EXPECT_EQ(regexp("b+", "abbc"), 1);
    EXPECT_EQ(regexp("^b+", "abbc"), 0);
    EXPECT_EQ(regexp("^a.*c$", "abbc"), 1);
    EXPECT_EQ(regexp("c$", "cb"), 0);
}

TEST(RX_WildcardRegexp, HasTheExtendedSyntax)
{
    EXPECT_EQ(regexp("^(ab|cd){2}$", "abcd"), 1);
    EXPECT_EQ(regexp("^(ab|cd){2}$", "ab"), 0);
    EXPECT_EQ(regexp("^[[:digit:]]+$", "123"), 1);
    EXPECT_EQ(regexp("^[[:digit:]]+$", "12a"), 0);
    EXPECT_EQ(regexp("^a?$", ""), 1);
}

TEST(RX_WildcardRegexp, EmptyPatternMatchesAnyString)
{
    EXPECT_EQ(regexp("", ""), 1);
    EXPECT_EQ(regexp("", "anything"), 1);
}

TEST(RX_WildcardRegexp, MalformedPatternThrowsTheErrorOfRegcomp)
{
    EXPECT_EQ(codeOf("[a", RX_Wildcard::REGEXP), REG_EBRACK);
    EXPECT_EQ(codeOf("(a", RX_Wildcard::REGEXP), REG_EPAREN);
    EXPECT_EQ(codeOf("a{1", RX_Wildcard::REGEXP), REG_EBRACE);
    EXPECT_EQ(codeOf("a{2,1}", RX_Wildcard::REGEXP), REG_BADBR);
    EXPECT_EQ(codeOf("[b-a]", RX_Wildcard::REGEXP), REG_ERANGE);
    EXPECT_EQ(codeOf("a\\", RX_Wildcard::REGEXP), REG_EESCAPE);
}

TEST(RX_Wildcard, MalformedPatternReportsTheReasonAndNoErrnoMessage)
{
    try {
        const RX_Wildcard compiled("x(a", RX_Wildcard::REGEXP);
        FAIL();
    } catch (const RX_ExError& failure) {
        EXPECT_EQ(failure.getArgument(0), "Unmatched ( or \\(");
        EXPECT_EQ(failure.getArgument(1), "x(a");
        EXPECT_EQ(failure.asString(78), "Bad pattern: Unmatched ( or \\(, x(a");
    }
    try {
        const RX_Wildcard compiled("x[a", RX_Wildcard::WILD);
        FAIL();
    } catch (const RX_ExError& failure) {
        EXPECT_EQ(failure.asString(78), "Bad pattern: missing ], x[a");
    }
}

TEST(RX_Wildcard, MalformedPatternKeepsItsMessageThroughThrowThis)
{
    try {
        try {
            const RX_Wildcard compiled("x[a", RX_Wildcard::WILD);
        } catch (const RX_ExError& failure) {
            failure.throwThis();
        }
        FAIL();
    } catch (const RX_Exception& failure) {
        EXPECT_EQ(failure.getCode(), 22);
        EXPECT_EQ(failure.asString(78), "Bad pattern: missing ], x[a");
    }
}

TEST(RX_Wildcard, SetPatternReplacesThePattern)
{
    RX_Wildcard wildcard(RX_String::none, RX_Wildcard::WILD);
    EXPECT_EQ(wildcard.matches("ab"), 0);
    wildcard.setPattern("a.", RX_Wildcard::REGEXP);
    EXPECT_EQ(wildcard.matches("ab"), 1);
    wildcard.setPattern("a.", RX_Wildcard::WILD);
    EXPECT_EQ(wildcard.matches("ab"), 0);
    EXPECT_EQ(wildcard.matches("a."), 1);
}

TEST(RX_Wildcard, SetPatternThatThrowsKeepsThePattern)
{
    RX_Wildcard wildcard("a*", RX_Wildcard::WILD);
    EXPECT_THROW(wildcard.setPattern("(", RX_Wildcard::REGEXP), RX_ExError);
    EXPECT_THROW(wildcard.setPattern("[", RX_Wildcard::WILD), RX_ExError);
    EXPECT_EQ(wildcard.matches("ab"), 1);
}

TEST(RX_Wildcard, MatchesNothingAfterFreeCompiled)
{
    for (const RX_Wildcard::Style style : {RX_Wildcard::WILD, RX_Wildcard::REGEXP}) {
        RX_Wildcard wildcard("a", style);
        EXPECT_EQ(wildcard.matches("a"), 1);
        wildcard.freeCompiled();
        wildcard.freeCompiled();
        EXPECT_EQ(wildcard.matches("a"), 0);
        EXPECT_EQ(wildcard.matches(""), 0);
        wildcard.setPattern("b", style);
        EXPECT_EQ(wildcard.matches("b"), 1);
    }
}

TEST(RX_Wildcard, ManyThreadsMatchConcurrently)
{
    const RX_Wildcard regular("^(a|b)*c$", RX_Wildcard::REGEXP);
    const RX_Wildcard shell("*<->?c", RX_Wildcard::WILD);
    std::atomic<int> ready{0};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < 4) {
                std::this_thread::yield();
            }
            for (int round = 0; round < 2000; ++round) {
                wrong += regular.matches("ababc") != 1;
                wrong += regular.matches("ababd") != 0;
                wrong += shell.matches("abc12xc") != 1;
                wrong += shell.matches("abc12xd") != 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

}
