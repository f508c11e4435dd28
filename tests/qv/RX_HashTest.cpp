#include <qv/rtlapi/RX_hash.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include <qv/rtlapi/RX_ElemWrap.hpp>

namespace {

TEST(RX_Hash, EqualStringsHaveEqualHashes)
{
    const RX_String shared("archive.0");
    EXPECT_EQ(RX_hash(shared), RX_hash(RX_String("archive.0")));
    EXPECT_EQ(RX_hash(shared), RX_hashAlignedBytes("archive.0", 9));
}

TEST(RX_Hash, DependsOnTheLength)
{
    // The last word is the same for all of them.
    const char zeros[16] = {};
    std::set<std::size_t> hashes;
    for (std::size_t length = 0; length <= sizeof zeros; ++length) {
        hashes.insert(RX_hashAlignedBytes(zeros, length));
    }
    EXPECT_EQ(hashes.size(), 17U);
}

TEST(RX_Hash, DependsOnEveryByte)
{
    std::string text = "a name that is longer than two words";
    std::set<std::size_t> hashes = {RX_hashAlignedBytes(text.data(), text.size())};
    for (char& byte : text) {
        byte = static_cast<char>(byte ^ 1);
        hashes.insert(RX_hashAlignedBytes(text.data(), text.size()));
        byte = static_cast<char>(byte ^ 1);
    }
    EXPECT_EQ(hashes.size(), 37U);
}

TEST(RX_Hash, DoesNotDependOnTheAlignment)
{
    alignas(8) char buffer[32];
    std::memcpy(buffer, "eleven byte", 11);
    const std::size_t aligned = RX_hashAlignedBytes(buffer, 11);
    std::memcpy(buffer + 3, "eleven byte", 11);
    EXPECT_EQ(RX_hashAlignedBytes(buffer + 3, 11), aligned);
}

TEST(RX_Hash, HighBitsOfNumbersAffectLowBitsOfTheHash)
{
    // The buckets, in a table of 1024, of numbers that differ only in their high bits.
    std::set<std::size_t> buckets;
    for (unsigned long i = 0; i < 1024; ++i) {
        buckets.insert(RX_hash(i << 40) % 1024);
    }
    EXPECT_GT(buckets.size(), 500U);
}

TEST(RX_Hash, KeysAreComparedByTheirType)
{
    EXPECT_TRUE(RX_keyEq(RX_String("a"), RX_String("a")));
    EXPECT_FALSE(RX_keyEq(RX_String("a"), RX_String("b")));
    EXPECT_TRUE(RX_keyEq(3, 3));
    EXPECT_FALSE(RX_keyEq(3, 4));
}

TEST(RX_ElemWrap, HashesAndComparesItsValue)
{
    const RX_ElemWrap<RX_String> elem(RX_String("a"));
    EXPECT_EQ(elem.hash(), RX_hash(RX_String("a")));
    EXPECT_EQ(elem.value(), "a");
    EXPECT_TRUE(elem == RX_ElemWrap<RX_String>(RX_String("a")));
    EXPECT_FALSE(elem == RX_ElemWrap<RX_String>(RX_String("b")));
}

}
