// The inner loops of Base64: compares the implementations, and checks that they stay within their memory.

#include <dalnim/io/src/Base64Blocks.hpp>

#include <qv/pmx/src/processor.hpp>

#include <tests/io/Base64Model.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using com::kor::dal::nim::io::B64_INVALID;
using com::kor::dal::nim::io::B64_XLAT;
using com::kor::dal::nim::io::Base64Blocks;
using com::kor::dal::nim::io::BASE64_SCALAR;
using com::kor::dal::nim::io::base64Blocks;
using com::kor::dal::nim::io::base64Value;

/** The implementations that this processor supports: vectors and scalar, or twice the scalar one. */
class Base64BlocksOf : public testing::TestWithParam<const Base64Blocks*>
{
protected:
    /** Uses memory of the exact size, so that a sanitizer reports any access outside. */
    std::string encode(const std::string& data) const
    {
        const std::unique_ptr<unsigned char[]> from(new unsigned char[data.size()]);
        std::memcpy(from.get(), data.data(), data.size());
        const std::unique_ptr<char[]> to(new char[data.size() / 3 * 4]);
        GetParam()->encode(from.get(), data.size() / 3, to.get());
        return std::string(to.get(), data.size() / 3 * 4);
    }

    /** The decoded groups. */
    std::string decode(const std::string& text) const
    {
        const std::unique_ptr<char[]> from(new char[text.size()]);
        std::memcpy(from.get(), text.data(), text.size());
        const std::unique_ptr<unsigned char[]> to(new unsigned char[text.size() / 4 * 3]);
        const std::size_t groups = GetParam()->decode(from.get(), text.size() / 4, to.get());
        return std::string(reinterpret_cast<char*>(to.get()), groups * 3);
    }
};

std::string randomData(std::mt19937& random, std::size_t length)
{
    std::string data(length, '\0');
    for (char& c : data) {
        c = static_cast<char>(random());
    }
    return data;
}

TEST_P(Base64BlocksOf, EveryNumberOfGroupsIsConverted)
{
    std::mt19937 random(24);
    for (std::size_t groups = 0; groups < 200; ++groups) {
        const std::string data = randomData(random, 3 * groups);
        const std::string text = base64model::encoded(data, 0);
        ASSERT_EQ(text, encode(data));
        ASSERT_EQ(data, decode(text));
    }
}

TEST_P(Base64BlocksOf, EveryByteAtEveryPositionIsChecked)
{
    std::mt19937 random(32);
    for (const std::size_t groups : {1U, 10U, 11U, 16U, 19U, 20U}) {
        const std::string data = randomData(random, 3 * groups);
        const std::string text = base64model::encoded(data, 0);
        for (std::size_t place = 0; place < text.size(); ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string changed = text;
                changed[place] = static_cast<char>(byte);
                const bool valid = byte != 0 && std::strchr(base64model::ALPHABET, byte) != nullptr;
                const std::string expected =
                    valid ? base64model::decoded(changed, false).data : data.substr(0, place / 4 * 3);
                ASSERT_EQ(expected, decode(changed)) << byte << " at " << place << " of " << text.size();
            }
        }
    }
}

TEST_P(Base64BlocksOf, EveryValueAtEveryPositionIsConverted)
{
    for (std::size_t place = 0; place < 88; ++place) {
        for (const char symbol : std::string(base64model::ALPHABET)) {
            std::string text(88, 'A');
            text[place] = symbol;
            const std::string data = base64model::decoded(text, false).data;
            ASSERT_EQ(data, decode(text));
            ASSERT_EQ(text, encode(data));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Scalar, Base64BlocksOf, testing::Values(&BASE64_SCALAR));
INSTANTIATE_TEST_SUITE_P(Fastest, Base64BlocksOf, testing::Values(&base64Blocks()));

TEST(Base64Blocks, VectorsAreUsedIfTheProcessorSupportsThem)
{
#if QV_IS_X86_64
    EXPECT_EQ(__builtin_cpu_supports("avx2") != 0, &base64Blocks() != &BASE64_SCALAR);
#else
    EXPECT_EQ(QV_IS_ARM64 == 1, &base64Blocks() != &BASE64_SCALAR);
#endif
}

TEST(Base64Blocks, ValuesOfAllBytes)
{
    EXPECT_STREQ("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", B64_XLAT);
    for (int byte = 0; byte < 256; ++byte) {
        const char* const found = byte != 0 ? std::strchr(base64model::ALPHABET, byte) : nullptr;
        const auto value = found != nullptr ? found - base64model::ALPHABET : B64_INVALID;
        EXPECT_EQ(value, base64Value(static_cast<char>(byte))) << byte;
    }
}

}
