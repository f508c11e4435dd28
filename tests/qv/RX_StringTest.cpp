#include <qv/rtlapi/RX_String.hpp>

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

static_assert(sizeof(RX_String) == sizeof(void*));
static_assert(std::is_nothrow_copy_constructible_v<RX_String>);
static_assert(std::is_nothrow_move_constructible_v<RX_String>);

// Static objects elsewhere may use the empty string in their constructors: it is initialised at compile time.
const RX_String loadTimeString;

TEST(RXString, IsInitiallyEmpty)
{
    const RX_String string;
    EXPECT_EQ(string.length(), 0U);
    EXPECT_STREQ(string.data(), "");
    EXPECT_EQ(string.getRep(), &RX_String::_empty.rep);
    EXPECT_EQ(loadTimeString.getRep(), &RX_String::_empty.rep);
}

TEST(RXString, NoneIsEmpty)
{
    EXPECT_EQ(RX_String::none.length(), 0U);
    EXPECT_STREQ(RX_String::none.data(), "");
    EXPECT_EQ(RX_String::none.getRep(), &RX_String::_empty.rep);
}

TEST(RXString, CopiesUpToTheTerminator)
{
    char text[] = "hello";
    const RX_String string(text, RX_String::NPOS);
    text[0] = 'j';
    EXPECT_EQ(string.length(), 5U);
    EXPECT_STREQ(string.data(), "hello");
    EXPECT_EQ(string.getRep()->length, 5U);
    EXPECT_EQ(string.getRep()->ref_count, 1);
}

TEST(RXString, CopiesTheGivenNumberOfBytes)
{
    const RX_String part("hello", 3);
    EXPECT_STREQ(part.data(), "hel");
    EXPECT_EQ(part.length(), 3U);
    EXPECT_EQ(RX_String("hello", 0).getRep(), &RX_String::_empty.rep);
}

TEST(RXString, MayContainZeroBytes)
{
    const RX_String string("a\0b\0", 4);
    EXPECT_EQ(string.length(), 4U);
    EXPECT_EQ(std::string(string.data(), 5), std::string("a\0b\0\0", 5));
    EXPECT_FALSE(string == "a");
    EXPECT_EQ(RX_String("a\0b", RX_String::NPOS).length(), 1U);
}

TEST(RXString, NullIsTheEmptyString)
{
    EXPECT_EQ(RX_String(nullptr, RX_String::NPOS).length(), 0U);
    EXPECT_EQ(RX_String(nullptr, 5).length(), 0U);
    RX_String string("x");
    string = static_cast<const char*>(nullptr);
    EXPECT_EQ(string.length(), 0U);
}

TEST(RXString, CopiesShareTheRepresentation)
{
    RX_String first("shared");
    {
        const RX_String second(first);
        RX_String third;
        third = second;
        EXPECT_EQ(second.getRep(), first.getRep());
        EXPECT_EQ(third.data(), first.data());
        EXPECT_EQ(first.getRep()->ref_count, 3);
    }
    EXPECT_EQ(first.getRep()->ref_count, 1);
}

TEST(RXString, WriteToASharedStringCopiesIt)
{
    RX_String first("Shared");
    const RX_String second(first);
    first.toUpper();
    EXPECT_STREQ(first.data(), "SHARED");
    EXPECT_STREQ(second.data(), "Shared");
    EXPECT_EQ(first.getRep()->ref_count, 1);
    EXPECT_EQ(second.getRep()->ref_count, 1);

    RX_String third(second);
    third += RX_String("!");
    EXPECT_STREQ(third.data(), "Shared!");
    EXPECT_STREQ(second.data(), "Shared");
}

TEST(RXString, WriteToAnUnsharedStringIsInPlace)
{
    RX_String string("Mixed");
    const char* const before = string.data();
    string.toLower();
    EXPECT_EQ(string.data(), before);
    EXPECT_STREQ(string.data(), "mixed");
}

TEST(RXString, RemainsSharedIfNothingChanges)
{
    RX_String first("lower");
    const RX_String second(first);
    EXPECT_EQ(&first.toLower(), &first);
    EXPECT_EQ(first.getRep(), second.getRep());
}

TEST(RXString, MoveDoesNotChangeTheReferenceCount)
{
    RX_String first("moved");
    RX_String second(std::move(first));
    EXPECT_EQ(second.getRep()->ref_count, 1);
    EXPECT_STREQ(second.data(), "moved");
    EXPECT_EQ(first.length(), 0U);
    RX_String third("gone");
    third = std::move(second);
    EXPECT_STREQ(third.data(), "moved");
    EXPECT_EQ(third.getRep()->ref_count, 1);
}

TEST(RXString, AssignmentSharesOrCopies)
{
    RX_String string("one");
    string = "two";
    EXPECT_STREQ(string.data(), "two");
    string = RX_String("three");
    EXPECT_STREQ(string.data(), "three");
    RX_String& self = string;
    string = self;
    EXPECT_STREQ(string.data(), "three");
    EXPECT_EQ(string.getRep()->ref_count, 1);
    // Assignment of a part of its own characters.
    string = string.data() + 2;
    EXPECT_STREQ(string.data(), "ree");
}

TEST(RXString, ClearReleasesTheRepresentation)
{
    RX_String string("text");
    const RX_String other(string);
    string.clear();
    EXPECT_EQ(string.getRep(), &RX_String::_empty.rep);
    EXPECT_EQ(other.getRep()->ref_count, 1);
    EXPECT_STREQ(other.data(), "text");
    string.clear();
    EXPECT_EQ(string.length(), 0U);

    RX_String third(other);
    third.deref();
    EXPECT_EQ(third.getRep(), &RX_String::_empty.rep);
    EXPECT_EQ(other.getRep()->ref_count, 1);
}

TEST(RXString, Appends)
{
    RX_String string("ab");
    EXPECT_EQ(&(string += RX_String("cd")), &string);
    EXPECT_STREQ(string.data(), "abcd");
    string += RX_String("\0e", 2);
    EXPECT_EQ(std::string(string.data(), string.length()), std::string("abcd\0e", 6));
    string += RX_String::none;
    EXPECT_EQ(string.length(), 6U);
}

TEST(RXString, AppendToTheEmptyStringShares)
{
    const RX_String source("source");
    RX_String string;
    string += source;
    EXPECT_EQ(string.getRep(), source.getRep());
}

TEST(RXString, CanBeAppendedToItself)
{
    RX_String string("ab");
    string += string;
    EXPECT_STREQ(string.data(), "abab");
    string += string;
    EXPECT_STREQ(string.data(), "abababab");
    EXPECT_EQ(string.getRep()->ref_count, 1);
}

TEST(RXString, GrowsGeometrically)
{
    RX_String string("x");
    const RX_String byte("y");
    int moves = 0;
    for (int i = 0; i < 100000; ++i) {
        const char* const before = string.data();
        string += byte;
        moves += string.data() != before;
    }
    EXPECT_EQ(string.length(), 100001U);
    EXPECT_LT(moves, 50);
}

TEST(RXString, ChangesTheCaseOfLettersOnly)
{
    RX_String string("aZ09_\xE4\0Bz", 9);
    EXPECT_EQ(&string.toUpper(), &string);
    EXPECT_EQ(std::string(string.data(), string.length()), std::string("AZ09_\xE4\0BZ", 9));
    EXPECT_EQ(&string.toLower(), &string);
    EXPECT_EQ(std::string(string.data(), string.length()), std::string("az09_\xE4\0bz", 9));
    RX_String empty;
    EXPECT_EQ(empty.toUpper().toLower().length(), 0U);
}

TEST(RXString, Compares)
{
    const RX_String string("text");
    EXPECT_TRUE(string == RX_String("text"));
    EXPECT_TRUE(string == string);
    EXPECT_FALSE(string == RX_String("texT"));
    EXPECT_FALSE(string == RX_String("texts"));
    EXPECT_FALSE(RX_String("a\0b", 3) == RX_String("a\0c", 3));
    EXPECT_TRUE(RX_String() == RX_String::none);
    EXPECT_TRUE(string != RX_String("other"));
    EXPECT_TRUE(string == "text");
    EXPECT_TRUE("text" == string);
    EXPECT_TRUE(string != "other");
    EXPECT_TRUE("other" != string);
    EXPECT_FALSE(string != "text");
}

TEST(RXString, IsWrittenToStreams)
{
    std::ostringstream os;
    os << RX_String("a\0b", 3) << '|' << RX_String() << '|' << std::setw(5) << RX_String("cd") << '|';
    EXPECT_EQ(os.str(), std::string("a\0b||   cd|", 11));
}

TEST(RXString, ThrowsIfTheLengthIsTooLarge)
{
    EXPECT_THROW(RX_String("x", RX_String::NPOS - 1), std::exception);
}

TEST(RXString, CanBeSharedBetweenThreads)
{
    const RX_String shared("Shared By All");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&shared] {
            for (int k = 0; k < 2000; ++k) {
                RX_String copy(shared);
                RX_String other(copy);
                copy.toLower();
                other += shared;
                ASSERT_TRUE(copy == "shared by all");
                ASSERT_EQ(other.length(), 26U);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_STREQ(shared.data(), "Shared By All");
    EXPECT_EQ(shared.getRep()->ref_count, 1);
}

TEST(RXString, LastOwnerWritesInPlaceAfterOthersHaveRead)
{
    // Another thread destroys its copy while this thread becomes the only owner, and writes.
    for (int round = 0; round < 200; ++round) {
        RX_String mine("Text Of Both");
        std::thread other([copy = mine]() mutable {
            ASSERT_TRUE(copy == "Text Of Both");
            copy.clear();
        });
        mine.toLower();
        other.join();
        ASSERT_TRUE(mine == "text of both");
    }
}

}
