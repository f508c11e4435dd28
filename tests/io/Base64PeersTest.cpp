// Compares with the Base64 of other programs. The program with the scalar loops runs these tests, too.

#include <dalnim/io/Base64.hpp>

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <memory>
#include <random>
#include <string>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Base64;

constexpr unsigned int LINES = 256;

String randomData(std::mt19937& random, std::size_t length)
{
    String data(length, '\0');
    for (char& c : data) {
        c = static_cast<char>(random());
    }
    return data;
}

const unsigned char* bytes(const String& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytes(String& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

String encodedByOpenSsl(const String& data)
{
    String text(data.size() / 3 * 4 + 5, '\0');
    const int length = EVP_EncodeBlock(bytes(text), bytes(data), static_cast<int>(data.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

/** Breaks into lines of 64 characters, each with a line feed. */
String encodedToLinesByOpenSsl(const String& data)
{
    const std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)> context(EVP_ENCODE_CTX_new(),
                                                                                  &EVP_ENCODE_CTX_free);
    String text(data.size() / 48 * 65 + 100, '\0');
    int length = 0;
    int end = 0;
    EVP_EncodeInit(context.get());
    EVP_EncodeUpdate(context.get(), bytes(text), &length, bytes(data), static_cast<int>(data.size()));
    EVP_EncodeFinal(context.get(), bytes(text) + length, &end);
    text.resize(static_cast<std::size_t>(length + end));
    return text;
}

/** Decodes `text`, whole groups, and removes the bytes of the padding. */
String decodedByOpenSsl(const String& text)
{
    String data(text.size() / 4 * 3, '\0');
    EXPECT_EQ(static_cast<int>(data.size()),
              EVP_DecodeBlock(bytes(data), bytes(text), static_cast<int>(text.size())));
    const std::size_t pads = text.size() - std::min(text.size(), text.find('='));
    data.resize(data.size() - pads);
    return data;
}

TEST(Base64Peers, AgreesWithOpenSslOnOneLine)
{
    std::mt19937 random(1);
    for (std::size_t i = 0; i < 3000; ++i) {
        const String data = randomData(random, i < 1000 ? i : random() % 20000);
        const String text = Base64().encode(data);
        ASSERT_EQ(encodedByOpenSsl(data), text) << i;
        ASSERT_EQ(decodedByOpenSsl(text), Base64().decode(text)) << i;
        ASSERT_EQ(data, Base64().decode(text)) << i;
    }
}

TEST(Base64Peers, AgreesWithOpenSslOnLines)
{
    std::mt19937 random(2);
    for (std::size_t i = 0; i < 1000; ++i) {
        const String data = randomData(random, i < 400 ? i : random() % 20000);
        const String theirs = encodedToLinesByOpenSsl(data);
        String ours = Base64().encode(data, LINES | 64);
        ASSERT_EQ(data, Base64().decode(theirs));
        if (!ours.empty() && ours.back() != '\n') {
            ours += '\n';
        }
        ASSERT_EQ(theirs, ours) << i;
    }
}

TEST(Base64Peers, AgreesWithCoreutils)
{
    std::mt19937 random(3);
    const support::ScratchFolder scratch;
    for (const std::size_t length : {0U, 1U, 2U, 3U, 56U, 57U, 58U, 6144U, 100001U}) {
        const String data = randomData(random, length);
        support::writeFile(scratch.file("data"), data);

        support::ChildProcess encoder({"/usr/bin/base64", "-w", "76", scratch.file("data")}, scratch.path());
        ASSERT_EQ(0, encoder.wait());
        String ours = Base64().encode(data, LINES);
        support::writeFile(scratch.file("text"), ours);
        if (!ours.empty() && ours.back() != '\n') {
            ours += '\n';
        }
        EXPECT_EQ(encoder.output(), ours) << length;
        EXPECT_EQ(data, Base64().decode(encoder.output())) << length;

        support::ChildProcess decoder({"/usr/bin/base64", "-d", scratch.file("text")}, scratch.path());
        ASSERT_EQ(0, decoder.wait());
        EXPECT_EQ(data, decoder.output()) << length;
    }
}

}
