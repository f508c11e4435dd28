#include <dalnim/type/StringOps.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::type::StringOps;

const char* const NONE = nullptr;

static_assert(!std::is_constructible_v<StringOps>);

static_assert(std::is_same_v<String, decltype(StringOps::trimWS("literal"))>);
static_assert(std::is_same_v<String, decltype(StringOps::trimWS(std::declval<const char*>()))>);
static_assert(std::is_same_v<String, decltype(StringOps::trimWS(std::declval<String&>()))>);
static_assert(std::is_same_v<char*, decltype(StringOps::trimWS(std::declval<char (&)[4]>()))>);
static_assert(std::is_same_v<char*, decltype(StringOps::trimWS(nullptr))>);
static_assert(std::is_same_v<char*, decltype(StringOps::replace(std::declval<char (&)[4]>(), 'a', 'b'))>);

String replaced(String target, const String& search, const String& replacement)
{
    String& result = StringOps::replace(target, search, replacement);
    EXPECT_EQ(&target, &result);
    return target;
}

/** Replaces step by step in place, for comparison with the implementation, which copies. */
String replacedInPlace(String target, const String& search, const String& replacement)
{
    if (search.empty()) {
        return target;
    }
    for (std::size_t pos = 0; pos + search.size() <= target.size();) {
        pos = target.find(search, pos);
        if (pos == String::npos) {
            break;
        }
        target.replace(pos, search.size(), replacement);
        pos += replacement.size();
    }
    return target;
}

TEST(StringOpsCompare, IgnoresCase)
{
    EXPECT_EQ(0, StringOps::compareIgnoreCase(String("abc"), String("ABC")));
    EXPECT_EQ(0, StringOps::compareIgnoreCase("abc", "ABC"));
    EXPECT_EQ(0, StringOps::compareIgnoreCase("A1_z", "a1_Z"));
}

TEST(StringOpsCompare, LengthDecidesAfterTheCommonPart)
{
    EXPECT_EQ(-1, StringOps::compareIgnoreCase(String("abc"), String("ABCD")));
    EXPECT_EQ(-1, StringOps::compareIgnoreCase("abc", "ABCD"));
    EXPECT_EQ(2, StringOps::compareIgnoreCase(String("ABCDE"), String("abc")));
    EXPECT_EQ(2, StringOps::compareIgnoreCase("ABCDE", "abc"));
}

TEST(StringOpsCompare, EmptyStrings)
{
    EXPECT_EQ(-1, StringOps::compareIgnoreCase(String(), String("x")));
    EXPECT_EQ(-1, StringOps::compareIgnoreCase("", "x"));
    EXPECT_EQ(3, StringOps::compareIgnoreCase(String("xyz"), String()));
    EXPECT_EQ(3, StringOps::compareIgnoreCase("xyz", ""));
    EXPECT_EQ(0, StringOps::compareIgnoreCase(String(), String()));
    EXPECT_EQ(0, StringOps::compareIgnoreCase("", ""));
}

TEST(StringOpsCompare, NullPointers)
{
    EXPECT_EQ(0, StringOps::compareIgnoreCase(NONE, NONE));
    EXPECT_EQ(-1, StringOps::compareIgnoreCase(NONE, "x"));
    EXPECT_EQ(-1, StringOps::compareIgnoreCase(NONE, ""));
    EXPECT_EQ(1, StringOps::compareIgnoreCase("x", NONE));
    EXPECT_EQ(1, StringOps::compareIgnoreCase("", NONE));
}

TEST(StringOpsCompare, FirstDifferenceOfLoweredBytes)
{
    EXPECT_EQ(-1, StringOps::compareIgnoreCase("aB", "Ac"));
    EXPECT_EQ(25, StringOps::compareIgnoreCase("Z", "abcdef"));
    // "_" is between the upper-case and the lower-case letters.
    EXPECT_EQ(2, StringOps::compareIgnoreCase("A", "_"));
    EXPECT_EQ(2, StringOps::compareIgnoreCase("a", "_"));
}

TEST(StringOpsCompare, BytesAreUnsigned)
{
    EXPECT_EQ(255 - 'z', StringOps::compareIgnoreCase("\xff", "Z"));
    EXPECT_EQ(1 - 128, StringOps::compareIgnoreCase("\x01", "\x80"));
    // The locale of this process has only ASCII letters.
    EXPECT_EQ(0xe9 - 0xc9, StringOps::compareIgnoreCase(String("\xe9"), String("\xc9")));
}

TEST(StringOpsCompare, ZeroBytesCountInStringsButEndArrays)
{
    const String left("a\0b", 3);
    const String right("A\0c", 3);
    EXPECT_EQ(-1, StringOps::compareIgnoreCase(left, right));
    EXPECT_EQ(0, StringOps::compareIgnoreCase(left, String("A\0B", 3)));
    EXPECT_EQ(0, StringOps::compareIgnoreCase(left.c_str(), right.c_str()));
    EXPECT_EQ(2, StringOps::compareIgnoreCase(left, String("a")));
}

TEST(StringOpsCompare, AnyThreadMayCallFirst)
{
    std::vector<std::thread> threads;
    std::vector<int> results(8, -1);
    for (int& result : results) {
        threads.emplace_back([&result] { result = StringOps::compareIgnoreCase("QuAy", "qUaY"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::vector<int>(8, 0), results);
}

TEST(StringOpsReplaceChar, EveryOccurrence)
{
    String text("a\\b\\\\c");
    EXPECT_EQ(&text, &StringOps::replace(text, '\\', '/'));
    EXPECT_EQ("a/b//c", text);

    String zeros("a\0b\0", 4);
    StringOps::replace(zeros, '\0', '-');
    EXPECT_EQ("a-b-", zeros);

    String behind_zero("x\0x", 3);
    StringOps::replace(behind_zero, 'x', 'y');
    EXPECT_EQ(String("y\0y", 3), behind_zero);
}

TEST(StringOpsReplaceChar, ArrayUpToItsEnd)
{
    char text[] = "aXbX\0X";
    EXPECT_EQ(text, StringOps::replace(text, 'X', '\xff'));
    EXPECT_EQ(0, std::memcmp("a\xff"
                             "b\xff\0X",
                             text, sizeof text));

    char unchanged[] = "ab";
    EXPECT_EQ(unchanged, StringOps::replace(unchanged, '\0', 'c'));
    EXPECT_STREQ("ab", unchanged);

    EXPECT_EQ(nullptr, StringOps::replace(static_cast<char*>(nullptr), 'a', 'b'));
}

TEST(StringOpsReplace, ReplacementsAreNotSearched)
{
    EXPECT_EQ("aaaaaa", replaced("aaa", "a", "aa"));
    EXPECT_EQ("xbab-xbab", replaced("ab-ab", "a", "xba"));
    EXPECT_EQ("aab", replaced("ab", "ab", "aab"));
}

TEST(StringOpsReplace, OccurrencesThatAReplacementCompletesAreNotReplaced)
{
    EXPECT_EQ("ab", replaced("aabb", "ab", ""));
    EXPECT_EQ("", replaced("abab", "ab", ""));
}

TEST(StringOpsReplace, NoOccurrenceChangesNothing)
{
    EXPECT_EQ("abc", replaced("abc", "", "x"));
    EXPECT_EQ("", replaced("", "", "x"));
    EXPECT_EQ("", replaced("", "a", "x"));
    EXPECT_EQ("abc", replaced("abc", "abcd", "x"));
    EXPECT_EQ("abc", replaced("abc", "d", "x"));
}

TEST(StringOpsReplace, WholeStringEndsAndOverlapsAreReplaced)
{
    EXPECT_EQ("x", replaced("abc", "abc", "x"));
    EXPECT_EQ("xabc_ab", replaced("ab_abc_ab", "ab_", "x"));
    EXPECT_EQ("-b-", replaced("aba", "a", "-"));
    EXPECT_EQ("xa", replaced("aaa", "aa", "x"));
    EXPECT_EQ(String("1\0"
                     "2",
                     3),
              replaced(String("1\0\0"
                              "2",
                              4),
                       String("\0\0", 2), String("\0", 1)));
}

TEST(StringOpsReplace, TargetMayBeAnArgument)
{
    String text("ab");
    StringOps::replace(text, text, "xyz");
    EXPECT_EQ("xyz", text);
    StringOps::replace(text, "y", text);
    EXPECT_EQ("xxyzz", text);
    StringOps::replace(text, text, text);
    EXPECT_EQ("xxyzz", text);
}

TEST(StringOpsReplace, AgreesWithReplacingInPlace)
{
    std::mt19937 random(20240607);
    const auto word = [&random](std::size_t longest) {
        String text(random() % (longest + 1), 'a');
        for (char& c : text) {
            c = static_cast<char>('a' + random() % 2);
        }
        return text;
    };
    for (int i = 0; i < 20000; ++i) {
        const String target = word(12);
        const String search = word(3);
        const String replacement = word(4);
        ASSERT_EQ(replacedInPlace(target, search, replacement), replaced(target, search, replacement))
            << target << " " << search << " " << replacement;
    }
}

TEST(StringOpsReplace, LongTextWithManyOccurrences)
{
    String text(1 << 20, 'a');
    StringOps::replace(text, "a", "bc");
    EXPECT_EQ(2u << 20, text.size());
    StringOps::replace(text, "bc", "");
    EXPECT_EQ("", text);
}

TEST(StringOpsCase, InPlace)
{
    String text("MiXed 1-\xc9");
    EXPECT_EQ(&text, &StringOps::toLower(text));
    EXPECT_EQ("mixed 1-\xc9", text);
    EXPECT_EQ(&text, &StringOps::toUpper(text));
    EXPECT_EQ("MIXED 1-\xc9", text);

    String empty;
    EXPECT_EQ("", StringOps::toLower(empty));
    EXPECT_EQ("", StringOps::toUpper(empty));
}

TEST(StringOpsCase, TruncatesAtTheFirstZeroByte)
{
    String text("a\0b", 3);
    EXPECT_EQ("A", StringOps::toUpper(text));
    EXPECT_EQ(1u, text.size());
    text.assign("A\0B", 3);
    EXPECT_EQ("a", StringOps::toLower(text));
    EXPECT_EQ(1u, text.size());
}

TEST(StringOpsTrim, String)
{
    EXPECT_EQ("a b", StringOps::trimWS("  a b  "));
    EXPECT_EQ("a b", StringOps::trimWS("a b"));
    EXPECT_EQ("a", StringOps::trimWS(" \t\n\v\f\ra"));
    EXPECT_EQ("a", StringOps::trimWS("a \t\n\v\f\r"));
    EXPECT_EQ("", StringOps::trimWS("   "));
    EXPECT_EQ("", StringOps::trimWS(""));
    EXPECT_EQ(String("\0", 1), StringOps::trimWS(String(" \0 ", 3)));
    EXPECT_EQ("\xa0\x85\xff", StringOps::trimWS("\xa0\x85\xff"));
}

TEST(StringOpsTrim, ConstantStringIsCopied)
{
    const String source(" a ");
    EXPECT_EQ("a", StringOps::trimWS(source));
    EXPECT_EQ(" a ", source);
}

TEST(StringOpsTrim, ArrayInPlace)
{
    char both[] = "  a b  ";
    EXPECT_EQ(both + 2, StringOps::trimWS(both));
    EXPECT_STREQ("  a b", both);

    char none[] = "ab";
    EXPECT_EQ(none, StringOps::trimWS(none));
    EXPECT_STREQ("ab", none);

    char high[] = "\xa0 \xff\t";
    EXPECT_EQ(high, StringOps::trimWS(high));
    EXPECT_STREQ("\xa0 \xff", high);
}

TEST(StringOpsTrim, ArrayOfSpacesBecomesEmpty)
{
    char spaces[] = "    ";
    char* const result = StringOps::trimWS(spaces);
    EXPECT_STREQ("", result);
    EXPECT_EQ(spaces + 4, result);

    char empty[] = "";
    EXPECT_EQ(empty, StringOps::trimWS(empty));
    EXPECT_EQ(nullptr, StringOps::trimWS(static_cast<char*>(nullptr)));
}

TEST(StringOpsConvert, ConvertsBetweenTheStringClasses)
{
    const RX_String converted = StringOps::convNIMStrToRXString("text");
    EXPECT_STREQ("text", converted.data());
    EXPECT_EQ(4u, converted.length());
    EXPECT_EQ("text", StringOps::convRXStringToNIMStr(converted));

    EXPECT_EQ(0u, StringOps::convNIMStrToRXString(String()).length());
    EXPECT_EQ("", StringOps::convRXStringToNIMStr(RX_String()));
}

TEST(StringOpsConvert, EndAtTheFirstZeroByte)
{
    EXPECT_EQ(1u, StringOps::convNIMStrToRXString(String("a\0b", 3)).length());
    EXPECT_EQ("a", StringOps::convRXStringToNIMStr(RX_String("a\0b", 3)));
}

}
