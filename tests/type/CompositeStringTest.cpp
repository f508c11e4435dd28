#include <dalnim/type/CompositeString.hpp>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace {

using com::kor::dal::nim::SInt8_t;
using com::kor::dal::nim::String;
using com::kor::dal::nim::type::CompositeString;

typedef std::vector<String> Strings;

Strings all_from_front(CompositeString text)
{
    Strings found;
    for (unsigned int left = text.components(); left != 0; --left) {
        found.push_back(text.next());
    }
    return found;
}

Strings all_from_back(CompositeString text)
{
    Strings found;
    for (unsigned int left = text.components(); left != 0; --left) {
        found.push_back(text.last());
    }
    return found;
}

TEST(CompositeString, ConstantsHaveTheirValues)
{
    EXPECT_STREQ("CompositeString", CompositeString::CLASS_NAME);
    EXPECT_STREQ("+", CompositeString::DEFAULT_DELIMITERS);
    EXPECT_EQ(2U, sizeof CompositeString::DEFAULT_DELIMITERS);
    EXPECT_TRUE((std::is_same_v<signed char, CompositeString::SInt8_t>));
}

TEST(CompositeString, DefaultIsEmpty)
{
    CompositeString text;
    EXPECT_EQ(0U, text.components());
    EXPECT_EQ("", text.composite());
    EXPECT_EQ("", text.next());
    EXPECT_EQ("", text.last());
}

TEST(CompositeString, DefaultDelimitersAndEmptyComponentsApply)
{
    CompositeString text;
    text.append("a").append("").append("b");
    EXPECT_EQ("a++b", text.composite());
    EXPECT_EQ(3U, text.components());
}

TEST(CompositeString, SplitsAtTheDefaultDelimiter)
{
    CompositeString text("a+b");
    EXPECT_EQ(2U, text.components());
    EXPECT_EQ("a", text.next());
    EXPECT_EQ("b", text.composite());
    EXPECT_EQ("b", text.next());
    EXPECT_EQ("", text.composite());
}

TEST(CompositeString, AnEmptyComponentInTheMiddleCountsUnlessSkipped)
{
    EXPECT_EQ(3U, CompositeString("a++b", false).components());
    EXPECT_EQ((Strings{"a", "", "b"}), all_from_front(CompositeString("a++b", false)));
    EXPECT_EQ(2U, CompositeString("a++b", true).components());
    EXPECT_EQ((Strings{"a", "b"}), all_from_front(CompositeString("a++b", true)));
}

TEST(CompositeString, EmptyComponentsAtTheFrontCountUnlessSkipped)
{
    EXPECT_EQ((Strings{"", "", "a"}), all_from_front(CompositeString("++a", false)));
    EXPECT_EQ((Strings{"a"}), all_from_front(CompositeString("++a", true)));
}

TEST(CompositeString, TrailingDelimiterAddsNoComponent)
{
    EXPECT_EQ(1U, CompositeString("a+", false).components());
    EXPECT_EQ(1U, CompositeString("a+", true).components());
    EXPECT_EQ((Strings{"a", ""}), all_from_front(CompositeString("a++", false)));
    EXPECT_EQ((Strings{"a"}), all_from_front(CompositeString("a++", true)));
}

TEST(CompositeString, DelimitersAloneAreEmptyComponentsUnlessSkipped)
{
    EXPECT_EQ(2U, CompositeString("++", false).components());
    EXPECT_EQ((Strings{"", ""}), all_from_front(CompositeString("++", false)));

    CompositeString skipping("++", true);
    EXPECT_EQ(0U, skipping.components());
    EXPECT_EQ("", skipping.next());
    EXPECT_EQ("", skipping.last());
    EXPECT_EQ("++", skipping.composite());
}

TEST(CompositeString, NextReturnsTheDelimiterThatEndedTheComponent)
{
    CompositeString text("a:b;c", ":;");
    SInt8_t dlm = 'x';
    EXPECT_EQ("a", text.next(dlm));
    EXPECT_EQ(':', dlm);
    EXPECT_EQ("b", text.next(dlm));
    EXPECT_EQ(';', dlm);
    EXPECT_EQ("c", text.next(dlm));
    EXPECT_EQ('\0', dlm);
}

TEST(CompositeString, NextKeepsTheDelimiterArgumentIfNothingIsLeft)
{
    SInt8_t dlm = 'x';
    EXPECT_EQ("", CompositeString().next(dlm));
    EXPECT_EQ('x', dlm);
    EXPECT_EQ("", CompositeString("++", true).next(dlm));
    EXPECT_EQ('x', dlm);
}

TEST(CompositeString, DelimiterAbove127IsReturnedAsThatByte)
{
    CompositeString text("a\xff"
                         "b",
                         "\xff");
    SInt8_t dlm = 0;
    EXPECT_EQ("a", text.next(dlm));
    EXPECT_EQ(-1, dlm);
}

TEST(CompositeString, NextConsumesLeadingDelimitersIfEmptyComponentsAreSkipped)
{
    CompositeString text("::a::b::", ":", true);
    SInt8_t dlm = 0;
    EXPECT_EQ("a", text.next(dlm));
    EXPECT_EQ(':', dlm);
    EXPECT_EQ(":b::", text.composite());
    EXPECT_EQ("b", text.next());
    EXPECT_EQ(":", text.composite());
    EXPECT_EQ("", text.next());
    EXPECT_EQ(":", text.composite());
}

TEST(CompositeString, ExhaustedStringStaysEmpty)
{
    CompositeString text("a");
    EXPECT_EQ("a", text.next());
    EXPECT_EQ("", text.next());
    EXPECT_EQ("", text.next());
    EXPECT_EQ("", text.composite());
    EXPECT_EQ(0U, text.components());
}

TEST(CompositeString, WithoutDelimitersTheWholeStringIsOneComponent)
{
    CompositeString text("a+b:c", "");
    EXPECT_EQ(1U, text.components());
    SInt8_t dlm = 'x';
    EXPECT_EQ("a+b:c", text.next(dlm));
    EXPECT_EQ('\0', dlm);
    EXPECT_EQ("", text.composite());
    EXPECT_EQ("a+b", CompositeString("a+b", "", true).last());
}

TEST(CompositeString, LastKeepsTheDelimiterBeforeIt)
{
    CompositeString text("a+b");
    EXPECT_EQ("b", text.last());
    EXPECT_EQ("a+", text.composite());
    EXPECT_EQ(1U, text.components());
    EXPECT_EQ("a", text.last());
    EXPECT_EQ("", text.composite());
    EXPECT_EQ("", text.last());
}

TEST(CompositeString, LastRemovesTrailingDelimiters)
{
    CompositeString skipping("a+b++", true);
    EXPECT_EQ("b", skipping.last());
    EXPECT_EQ("a+", skipping.composite());

    CompositeString counting("a+b++", false);
    EXPECT_EQ("", counting.last());
    EXPECT_EQ("a+b+", counting.composite());
    EXPECT_EQ("b", counting.last());
    EXPECT_EQ("a+", counting.composite());
}

TEST(CompositeString, RepeatedLastRemovesAllComponents)
{
    EXPECT_EQ((Strings{"b", "", "a"}), all_from_back(CompositeString("a++b", false)));
    EXPECT_EQ((Strings{"b", "a"}), all_from_back(CompositeString("+a++b+", true)));
}

TEST(CompositeString, AppendToAnEmptyStringAddsNoDelimiter)
{
    CompositeString text;
    EXPECT_EQ(&text, &text.append("x"));
    EXPECT_EQ("x", text.composite());
    text.append("y");
    EXPECT_EQ("x+y", text.composite());
}

TEST(CompositeString, AppendJoinsWithTheFirstDelimiterOnly)
{
    CompositeString text("a;b", ":;");
    text.append("c");
    EXPECT_EQ("a;b:c", text.composite());
}

TEST(CompositeString, AppendOfAnEmptyComponentAddsADelimiterUnlessSkipped)
{
    CompositeString counting;
    counting.append("");
    EXPECT_EQ("+", counting.composite());
    EXPECT_EQ(1U, counting.components());
    counting.append("");
    EXPECT_EQ("++", counting.composite());

    CompositeString skipping("a", true);
    skipping.append("");
    EXPECT_EQ("a", skipping.composite());
    skipping = CompositeString("", true);
    skipping.append("");
    EXPECT_EQ("", skipping.composite());
}

TEST(CompositeString, AppendWithoutDelimitersConcatenates)
{
    CompositeString text("a", "");
    text.append("b").append("");
    EXPECT_EQ("ab", text.composite());
}

TEST(CompositeString, AppendAfterATrailingDelimiterAddsAnother)
{
    CompositeString text("a+");
    text.append("b");
    EXPECT_EQ("a++b", text.composite());
}

TEST(CompositeString, PlusAssignIsAppend)
{
    CompositeString text("a");
    EXPECT_EQ(&text, &(text += "b"));
    EXPECT_EQ("a+b", text.composite());
    text += "";
    EXPECT_EQ("a+b+", text.composite());
}

TEST(CompositeString, CompositeAndToStringReturnTheRemainingString)
{
    CompositeString text("a+b+c");
    text.next();
    EXPECT_EQ("b+c", text.composite());
    EXPECT_EQ("b+c", text.composite(false));
    EXPECT_EQ("b+c", text.composite(true));
    EXPECT_EQ("b+c", text.toString());
    EXPECT_EQ("b+c", text.toString(false));
    EXPECT_EQ("b+c", text.toString(true));
    EXPECT_EQ(2U, text.components());
}

TEST(CompositeString, CopiesHaveTheSameFlagStringAndDelimiters)
{
    const CompositeString source("a::b", ":", true);
    for (const bool deep : {false, true}) {
        CompositeString copy(source, deep);
        EXPECT_EQ(2U, copy.components());
        EXPECT_EQ("a", copy.next());
        EXPECT_EQ(":b", copy.composite());
        EXPECT_EQ("a::b", source.composite());
    }
    CompositeString implicit = source;
    EXPECT_EQ((Strings{"a", "b"}), all_from_front(implicit));
}

TEST(CompositeString, AssignmentCopiesFlagStringAndDelimiters)
{
    CompositeString text("x+y");
    EXPECT_EQ(&text, &(text = CompositeString("a::b", ":", true)));
    EXPECT_EQ((Strings{"a", "b"}), all_from_front(text));
    text.append("c");
    EXPECT_EQ("a::b:c", text.composite());

    const CompositeString& same = text;
    text = same;
    EXPECT_EQ("a::b:c", text.composite());
}

TEST(CompositeString, IsTrueWhileCharactersRemain)
{
    CompositeString text("a");
    EXPECT_TRUE(text ? true : false);
    EXPECT_FALSE(!text);
    EXPECT_EQ(reinterpret_cast<const void*>(1), static_cast<const void*>(text));
    text.next();
    EXPECT_FALSE(text ? true : false);
    EXPECT_TRUE(!text);
    EXPECT_EQ(nullptr, static_cast<const void*>(text));
}

TEST(CompositeString, IsTrueWhileOnlyDelimitersRemain)
{
    const CompositeString text("++", true);
    EXPECT_TRUE(text ? true : false);
    EXPECT_FALSE(!text);
}

TEST(CompositeString, KeepsZeroBytesInStringAndDelimiters)
{
    const String zero(1, '\0');
    CompositeString text("a" + zero + "b", zero);
    SInt8_t dlm = 'x';
    EXPECT_EQ("a", text.next(dlm));
    EXPECT_EQ('\0', dlm);
    EXPECT_EQ("b", text.composite());

    const String embedded = "a" + zero + "b";
    EXPECT_EQ(embedded, CompositeString(embedded).next());
    EXPECT_EQ(embedded, CompositeString(CompositeString(embedded), true).composite(true));
}

TEST(CompositeString, LiteralIsTheDelimitersAndNotTheFlag)
{
    EXPECT_EQ(2U, CompositeString("a:b", ":").components());
    EXPECT_EQ(3U, CompositeString("a::b", ":").components());
    EXPECT_EQ(2U, CompositeString("a::b", ":", true).components());
    const char* const delimiters = ":";
    EXPECT_EQ(2U, CompositeString(String("a:b"), delimiters).components());
    EXPECT_EQ(2U, CompositeString(String("a:b"), String(delimiters)).components());
}

TEST(CompositeString, BoolIsTheFlagAndNotTheDelimiters)
{
    EXPECT_EQ(2U, CompositeString("a++b", true).components());
    EXPECT_EQ(3U, CompositeString("a++b", false).components());
    const bool skip_empty = true;
    EXPECT_EQ(2U, CompositeString(String("a++b"), skip_empty).components());
}

TEST(CompositeString, AmbiguousArgumentsDoNotCompile)
{
    EXPECT_FALSE((std::is_constructible_v<CompositeString, const char*, char>));
    EXPECT_FALSE((std::is_constructible_v<CompositeString, const char*, int>));
    EXPECT_FALSE((std::is_constructible_v<CompositeString, const char*, std::nullptr_t>));
    EXPECT_FALSE((std::is_constructible_v<CompositeString, const char*, char, bool>));
    EXPECT_FALSE((std::is_constructible_v<CompositeString, const CompositeString&, const char*>));
    EXPECT_TRUE((std::is_constructible_v<CompositeString, const char*, bool>));
    EXPECT_TRUE((std::is_constructible_v<CompositeString, const char*, const char*>));
    EXPECT_TRUE((std::is_constructible_v<CompositeString, const char*, const char*, bool>));
    EXPECT_TRUE((std::is_constructible_v<CompositeString, const CompositeString&, bool>));
    EXPECT_FALSE((std::is_convertible_v<String, CompositeString>));
}

/** A model of the scanner in its simplest form, for comparison on every short string. */
Strings components_by_character(const String& text, bool skip_empty)
{
    Strings found;
    String component;
    for (const char c : text) {
        if (c != '+') {
            component += c;
            continue;
        }
        if (!skip_empty || !component.empty()) {
            found.push_back(component);
        }
        component.clear();
    }
    if (!component.empty()) {
        found.push_back(component);
    }
    return found;
}

TEST(CompositeString, AgreesWithTheModelOnEveryStringOfUpToEightCharacters)
{
    for (unsigned int length = 0; length <= 8; ++length) {
        for (unsigned int bits = 0; bits < (1U << length); ++bits) {
            String text;
            for (unsigned int i = 0; i < length; ++i) {
                text += (bits >> i & 1U) != 0 ? '+' : static_cast<char>('a' + i);
            }
            for (const bool skip_empty : {false, true}) {
                Strings expected = components_by_character(text, skip_empty);
                const CompositeString composite(text, skip_empty);
                ASSERT_EQ(expected, all_from_front(composite)) << text;
                const Strings backwards(expected.rbegin(), expected.rend());
                ASSERT_EQ(backwards, all_from_back(composite)) << text;
            }
        }
    }
}

}
