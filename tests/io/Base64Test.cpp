// Input and output of the overloads for strings. The program with the scalar loops runs these tests, too.

#include <dalnim/io/Base64.hpp>

#include <tests/io/Base64Model.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Base64;

constexpr unsigned int LINES = 256;
constexpr unsigned int SKIP = 512;

const char ALL_BYTES_ENCODED[] =
    "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4OTo7PD0+P0BBQkNERUZH"
    "SElKS0xNTk9QUVJTVFVWV1hZWltcXV5fYGFiY2RlZmdoaWprbG1ub3BxcnN0dXZ3eHl6e3x9fn+AgYKDhIWGh4iJiouMjY6P"
    "kJGSk5SVlpeYmZqbnJ2en6ChoqOkpaanqKmqq6ytrq+wsbKztLW2t7i5uru8vb6/wMHCw8TFxsfIycrLzM3Oz9DR0tPU1dbX"
    "2Nna29zd3t/g4eLj5OXm5+jp6uvs7e7v8PHy8/T19vf4+fr7/P3+/w==";

String allBytes()
{
    String all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    return all;
}

String encoded(const String& data, unsigned int flags = 0)
{
    return Base64().encode(data, flags);
}

String decoded(const String& text, unsigned int flags = 0)
{
    return Base64().decode(text, flags);
}

/** Returns the message of the exception, or the result in brackets. */
String failure(const String& text, unsigned int flags = 0)
{
    try {
        return "[" + decoded(text, flags) + "]";
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

const char ILLEGAL[] = "Illegal Base64 format";

TEST(Base64Encode, VectorsOfTheRfc)
{
    EXPECT_EQ("", encoded(""));
    EXPECT_EQ("Zg==", encoded("f"));
    EXPECT_EQ("Zm8=", encoded("fo"));
    EXPECT_EQ("Zm9v", encoded("foo"));
    EXPECT_EQ("Zm9vYg==", encoded("foob"));
    EXPECT_EQ("Zm9vYmE=", encoded("fooba"));
    EXPECT_EQ("Zm9vYmFy", encoded("foobar"));
}

TEST(Base64Encode, EveryByteIsEncoded)
{
    EXPECT_EQ(ALL_BYTES_ENCODED, encoded(allBytes()));
    EXPECT_EQ("AA==", encoded(String(1, '\0')));
    EXPECT_EQ("AAAAAA==", encoded(String(4, '\0')));
    EXPECT_EQ("////", encoded("\xff\xff\xff"));
}

TEST(Base64Encode, WidthOfLinesIsAMultipleOf4)
{
    const String data(600, 'x');
    const auto firstLine = [&](unsigned int width) { return encoded(data, LINES | width).find('\n'); };
    EXPECT_EQ(76U, firstLine(0));
    EXPECT_EQ(4U, firstLine(1));
    EXPECT_EQ(4U, firstLine(3));
    EXPECT_EQ(4U, firstLine(4));
    EXPECT_EQ(4U, firstLine(7));
    EXPECT_EQ(8U, firstLine(8));
    EXPECT_EQ(8U, firstLine(10));
    EXPECT_EQ(76U, firstLine(76));
    EXPECT_EQ(252U, firstLine(255));
}

TEST(Base64Encode, WidthWithoutTheFlagBreaksNoLines)
{
    EXPECT_EQ("QUJDREVG", encoded("ABCDEF", 4));
    EXPECT_EQ(String::npos, encoded(String(600, 'x'), 255).find('\n'));
}

TEST(Base64Encode, OtherFlagsAreIgnored)
{
    EXPECT_EQ("QUJDREVG", encoded("ABCDEF", ~LINES));
    EXPECT_EQ("QUJD\nREVG\n", encoded("ABCDEF", 0xFFFFFF04));
}

TEST(Base64Encode, FullLinesEndInALineFeed)
{
    EXPECT_EQ("", encoded("", LINES));
    EXPECT_EQ("QUJD\nREVG\n", encoded("ABCDEF", LINES | 4));
    EXPECT_EQ("QUJDREVG\nRw==", encoded("ABCDEFG", LINES | 8));
    EXPECT_EQ("QUJDREVG\nR0g=", encoded("ABCDEFGH", LINES | 8));
    EXPECT_EQ("QUJDREVG\nR0hJ", encoded("ABCDEFGHI", LINES | 8));
    EXPECT_EQ("QUJDREVG\nR0hJSg==\n", encoded("ABCDEFGHIJ", LINES | 8));
    EXPECT_EQ("QQ==\n", encoded("A", LINES | 4));
    EXPECT_EQ("QUI=\n", encoded("AB", LINES | 4));
}

TEST(Base64Encode, A57thByteFillsALine)
{
    const String line = "eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4";
    ASSERT_EQ(76U, line.size());
    EXPECT_EQ(line.substr(0, 72) + "eHg=\n", encoded(String(56, 'x'), LINES));
    EXPECT_EQ(line + "\n", encoded(String(57, 'x'), LINES));
    EXPECT_EQ(line + "\neA==", encoded(String(58, 'x'), LINES));
    EXPECT_EQ(line + "\n" + line + "\n", encoded(String(114, 'x'), LINES));
}

TEST(Base64Decode, VectorsOfTheRfc)
{
    EXPECT_EQ("", decoded(""));
    EXPECT_EQ("f", decoded("Zg=="));
    EXPECT_EQ("fo", decoded("Zm8="));
    EXPECT_EQ("foo", decoded("Zm9v"));
    EXPECT_EQ("foob", decoded("Zm9vYg=="));
    EXPECT_EQ("fooba", decoded("Zm9vYmE="));
    EXPECT_EQ("foobar", decoded("Zm9vYmFy"));
    EXPECT_EQ(allBytes(), decoded(ALL_BYTES_ENCODED));
}

TEST(Base64Decode, ShortTextsAreDecoded)
{
    EXPECT_EQ("ABC", decoded("QUJD"));
    EXPECT_EQ("AB", decoded("QUI="));
    EXPECT_EQ("A", decoded("QQ=="));
}

TEST(Base64Decode, PartialGroupsAreIllegal)
{
    EXPECT_EQ(ILLEGAL, failure("Q"));
    EXPECT_EQ(ILLEGAL, failure("QU"));
    EXPECT_EQ(ILLEGAL, failure("QUJ"));
    EXPECT_EQ(ILLEGAL, failure("QUJDQ"));
    EXPECT_EQ(ILLEGAL, failure("QUJDQ\n"));
    EXPECT_EQ(ILLEGAL, failure("Q", SKIP));
    EXPECT_EQ(ILLEGAL, failure("QUJ*", SKIP));
    EXPECT_EQ(ILLEGAL, failure("QQ="));
    EXPECT_EQ(ILLEGAL, failure("Q="));
    EXPECT_EQ(ILLEGAL, failure("Q=="));
}

TEST(Base64Decode, PaddingIsOneOrTwoCharacters)
{
    EXPECT_EQ(ILLEGAL, failure("Q==="));
    EXPECT_EQ(ILLEGAL, failure("Q===", SKIP));
    EXPECT_EQ(ILLEGAL, failure("QUJDQ==="));
    // Surplus bits are not checked.
    EXPECT_EQ("A", decoded("QR=="));
    EXPECT_EQ("A", decoded("Qf=="));
    EXPECT_EQ("AB", decoded("QUJ="));
    EXPECT_EQ("AB", decoded("QUL="));
}

TEST(Base64Decode, EndsAtPaddingAtTheStartOfAGroup)
{
    EXPECT_EQ("", decoded("="));
    EXPECT_EQ("", decoded("===="));
    EXPECT_EQ("", decoded("=QQ"));
    EXPECT_EQ("", decoded(" \n=*"));
    EXPECT_EQ("ABC", decoded("QUJD="));
    EXPECT_EQ("ABC", decoded("QUJD====QUJD"));
    EXPECT_EQ("ABC", decoded("QUJD=*", SKIP));
}

TEST(Base64Decode, EndsAfterAPaddedGroup)
{
    EXPECT_EQ("A", decoded("QQ==QUJD"));
    EXPECT_EQ("A", decoded("QQ==*"));
    EXPECT_EQ("A", decoded("QQ==="));
    EXPECT_EQ("AB", decoded("QUI=QUJD"));
    EXPECT_EQ("AB", decoded("QUI=="));
    EXPECT_EQ("ABCAB", decoded("QUJDQUI=Q"));
}

TEST(Base64Decode, NothingIsSkippedWithinPadding)
{
    EXPECT_EQ(ILLEGAL, failure("QQ=\n="));
    EXPECT_EQ(ILLEGAL, failure("QQ=\n=", SKIP));
    EXPECT_EQ(ILLEGAL, failure("QQ=*="));
    EXPECT_EQ(ILLEGAL, failure("QQ=*=", SKIP));
    EXPECT_EQ(ILLEGAL, failure("QQ=A"));
    EXPECT_EQ(ILLEGAL, failure("Q=Q="));
    EXPECT_EQ(ILLEGAL, failure("Q=QQ", SKIP));
    // White space before padding is allowed.
    EXPECT_EQ("A", decoded("QQ\n=="));
    EXPECT_EQ("A", decoded("Q*Q*==", SKIP));
}

TEST(Base64Decode, SkipsWhiteSpace)
{
    EXPECT_EQ("ABC", decoded("QU\nJD"));
    EXPECT_EQ("ABC", decoded(" Q\tU\nJ\v\fD\r"));
    EXPECT_EQ("ABCDEF", decoded("QUJD\r\nREVG\r\n"));
    EXPECT_EQ("", decoded(" \t\n\v\f\r"));
    EXPECT_EQ("ABC", decoded("QU\nJD", SKIP));
    EXPECT_EQ("ABC", decoded("QU\nJD", LINES | 3));
}

TEST(Base64Decode, SkipsInvalidBytesWithTheFlag)
{
    EXPECT_EQ(ILLEGAL, failure("QU*JD"));
    EXPECT_EQ("ABC", decoded("QU*JD", SKIP));
    EXPECT_EQ("ABC", decoded("-Q_U.J,D\x7f", SKIP));
    EXPECT_EQ("ABC", decoded(String("Q\0U\xff\x80J D", 8), SKIP));
    EXPECT_EQ("", decoded("***", SKIP));
    EXPECT_EQ(ILLEGAL, failure("*"));
    EXPECT_EQ(ILLEGAL, failure("-_-_"));
    EXPECT_EQ(ILLEGAL, failure(String("QUJD\0", 5)));
}

TEST(Base64Decode, EveryByteBetweenGroups)
{
    const String groups = "QUJDREVGR0hJ";
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const String text = groups + c + groups;
        const bool symbol = byte != 0 && std::strchr(base64model::ALPHABET, c) != nullptr;
        const bool space = byte != 0 && std::strchr(" \t\n\v\f\r", c) != nullptr;
        const String open = c == '=' ? "[ABCDEFGHI]" : symbol ? ILLEGAL : "[ABCDEFGHIABCDEFGHI]";
        EXPECT_EQ(open, failure(text, SKIP)) << byte;
        EXPECT_EQ(c == '=' || symbol || space ? open : ILLEGAL, failure(text)) << byte;
    }
}

TEST(Base64Decode, EveryByteAtEveryPlaceOfALongText)
{
    const String groups = "QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVphYmNkZWZn"
                          "aGlqa2xtbm9wcXJzdHV2d3h5ejAxMjM0NTY3ODkrLw==";
    for (std::size_t place = 0; place < groups.size(); ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            String text = groups;
            text[place] = static_cast<char>(byte);
            for (const unsigned int flags : {0U, SKIP}) {
                const auto model = base64model::decoded(text, flags != 0);
                ASSERT_EQ(model.illegal ? ILLEGAL : "[" + model.data + "]", failure(text, flags))
                    << byte << " at " << place;
            }
        }
    }
}

TEST(Base64Decode, RunsOfIllegalBytesTakeLinearTime)
{
    EXPECT_EQ("ABC", decoded("QU" + String(10000000, '*') + "JD" + String(10000000, '-'), SKIP));
}

TEST(Base64, EveryLengthRoundTrips)
{
    std::mt19937 random(2048);
    for (std::size_t length = 0; length < 400; ++length) {
        String data(length, '\0');
        for (char& c : data) {
            c = static_cast<char>(random());
        }
        ASSERT_EQ(base64model::encoded(data, 0), encoded(data));
        ASSERT_EQ(data, decoded(encoded(data)));
        for (const unsigned int width : {4U, 8U, 64U, 76U, 252U}) {
            ASSERT_EQ(base64model::encoded(data, width), encoded(data, LINES | width)) << length;
            ASSERT_EQ(data, decoded(encoded(data, LINES | width)));
        }
    }
}

TEST(Base64, SeveralBlocksRoundTrip)
{
    std::mt19937 random(6144);
    for (const std::size_t blocks : {1U, 2U, 7U}) {
        for (std::size_t length = 6144 * blocks - 4; length < 6144 * blocks + 5; ++length) {
            String data(length, '\0');
            for (char& c : data) {
                c = static_cast<char>(random());
            }
            ASSERT_EQ(base64model::encoded(data, 0), encoded(data));
            ASSERT_EQ(base64model::encoded(data, 4), encoded(data, LINES | 4));
            ASSERT_EQ(base64model::encoded(data, 76), encoded(data, LINES));
            ASSERT_EQ(data, decoded(encoded(data)));
            ASSERT_EQ(data, decoded(encoded(data, LINES | 4)));
        }
    }
}

/** Returns text that is mostly from the alphabet, with all bytes that the decoder treats specially. */
String randomText(std::mt19937& random)
{
    static const char others[] = "====\n\n  \t\r*-\x80";
    const std::size_t rarity = 1 + random() % 60;
    String text(random() % 300, '\0');
    for (char& c : text) {
        const bool other = random() % rarity == 0;
        c = other ? others[random() % (sizeof others)] : base64model::ALPHABET[random() % 64];
    }
    return text;
}

TEST(Base64Decode, AgreesWithTheModel)
{
    std::mt19937 random(4648);
    for (int i = 0; i < 20000; ++i) {
        const String text = randomText(random);
        for (const unsigned int flags : {0U, SKIP}) {
            const auto model = base64model::decoded(text, flags != 0);
            ASSERT_EQ(model.illegal ? ILLEGAL : "[" + model.data + "]", failure(text, flags)) << text;
        }
    }
}

TEST(Base64, ManyThreadsMayUseOneObject)
{
    const Base64 base64;
    std::vector<std::thread> threads;
    std::vector<int> rounds(4);
    for (std::size_t i = 0; i < rounds.size(); ++i) {
        threads.emplace_back([&base64, &round = rounds[i], i] {
            const String data(1000 + i, static_cast<char>('a' + i));
            while (round < 100 && base64.decode(base64.encode(data, LINES)) == data) {
                ++round;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::vector<int>(4, 100), rounds);
}

}
