#include <dalnim/io/Base64.hpp>
#include <dalnim/io/Properties.hpp>

#include <support/CpuTime.hpp>
#include <support/Files.hpp>
#include <support/GeneratedText.hpp>
#include <support/LongRun.hpp>
#include <support/PeakMemory.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <istream>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Base64;
using com::kor::dal::nim::io::Properties;
using support::GeneratedText;

constexpr std::size_t MEBIBYTE = std::size_t{1} << 20;
constexpr std::size_t PIECE = 65536;

/** One or several lines, whose middle has a length of choice. */
struct LongLine
{
    const char* name;
    const char* first;
    const char* piece;
    const char* last;
    /** The part of it that the table contains. */
    std::size_t key_length_of_piece;
    std::size_t value_length_of_piece;
};

void PrintTo(const LongLine& line, std::ostream* os)
{
    *os << line.name;
}

class HostileLine : public testing::TestWithParam<LongLine>
{};

TEST_P(HostileLine, LineOfAnyLengthIsRead)
{
    const LongLine& line = GetParam();
    const std::size_t size = (support::isLongRun() ? 256 : 8) * MEBIBYTE;
    String piece;
    std::size_t pieces = 0;
    for (; piece.size() < PIECE; ++pieces) {
        piece += line.piece;
    }
    const std::size_t times = size / piece.size();
    pieces *= times;

    const support::PeakMemory memory;
    GeneratedText text(GeneratedText::repeated(line.first, piece, times, line.last));
    std::istream stream(&text);
    const Properties properties(stream, false);
    std::size_t key_length = 0;
    std::size_t value_length = 0;
    for (const auto& [key, value] : properties) {
        key_length = std::max(key_length, key.size());
        value_length = std::max(value_length, value.size());
    }
    EXPECT_EQ("1", properties.getProperty("behind"));
    EXPECT_GE(key_length, std::max<std::size_t>(1, line.key_length_of_piece * pieces));
    EXPECT_GE(value_length, std::max<std::size_t>(1, line.value_length_of_piece * pieces));
    RecordProperty("growth", std::to_string(memory.growth() / MEBIBYTE));
    if (support::measuresMemory()) {
        // The line, the decoded line, the property, and an old block while it is copied to a larger one.
        EXPECT_LE(memory.growth(), 6 * size + 16 * MEBIBYTE);
    }
}

INSTANTIATE_TEST_SUITE_P(All, HostileLine,
                         testing::Values(LongLine{"Value", "key=", "x", "\nbehind=1\n", 0, 1},
                                         LongLine{"Key", "", "x", "=1\nbehind=1\n", 1, 0},
                                         LongLine{"HighKey", "", "\xff", "=1\nbehind=1\n", 1, 0},
                                         LongLine{"Escapes", "key=", "\\u00e9", "\nbehind=1\n", 0, 1},
                                         LongLine{"Blanks", "key=", " ", "\nbehind=1\n", 0, 0},
                                         LongLine{"Continued", "key=", "x\\\n", "\nbehind=1\n", 0, 1},
                                         LongLine{"Comment", "#", "x", "\nbehind=1\n", 0, 0},
                                         LongLine{"NoPragma", "%", "x", "\nbehind=1\n", 0, 0}),
                         [](const auto& tested) { return String(tested.param.name); });

TEST(HostileLine, MessageContainsALongPragmaInFull)
{
    const std::size_t size = (support::isLongRun() ? 64 : 1) * MEBIBYTE;
    std::istringstream stream("%pragma include \"" + String(size, 'x') + "\"\n");
    Properties properties;
    std::ostringstream unused;
    try {
        properties.load(stream, "a.conf", unused, unused, Properties::SEV_ERROR, false);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ("ERROR: a.conf:1: failed to open include file: \"" + String(size, 'x') + "\"", e.what());
    }
}

/** Loads `count` properties, whose keys are in the order of multiples of `step`. */
std::size_t loadMany(std::size_t count, std::size_t step, Properties& properties)
{
    std::size_t number = 0;
    GeneratedText text([count, step, &number] {
        String piece;
        for (; piece.size() < PIECE && number < count; ++number) {
            piece += "key" + std::to_string(number * step % count) + "=" + std::to_string(number) + "\n";
        }
        return piece;
    });
    std::istream stream(&text);
    properties.load(stream, false);
    return properties.size();
}

TEST(HostileProperties, LargeTablesAreLoadedInBoundedMemory)
{
    // Not a multiple of the steps, which are primes.
    const std::size_t count = support::isLongRun() ? 10000000 : 300000;
    for (const std::size_t step : {std::size_t{1}, std::size_t{7919}}) {
        const support::PeakMemory memory;
        Properties properties;
        EXPECT_EQ(count, loadMany(count, step, properties));
        EXPECT_EQ("1", properties.getProperty("key" + std::to_string(step)));
        EXPECT_EQ(std::to_string(count - 1), properties.getProperty("key" + std::to_string(count - step)));
        RecordProperty("growth" + std::to_string(step), std::to_string(memory.growth() / MEBIBYTE));
        if (support::measuresMemory()) {
            EXPECT_LE(memory.growth(), 192 * count + 32 * MEBIBYTE);
        }
    }
}

TEST(HostileProperties, LoadInLinearTime)
{
    for (const std::size_t step : {std::size_t{1}, std::size_t{7919}}) {
        const auto time = [step](std::size_t count) {
            return support::cpuTimeOf([=] {
                Properties properties;
                loadMany(count, step, properties);
            });
        };
        constexpr std::size_t FACTOR = 8;
        // Quadratic time would be 64 times as long.
        EXPECT_LT(time(FACTOR * 20000), 4 * FACTOR * time(20000)) << step;
    }
}

TEST(HostileProperties, KeysAndValuesOfAnyBytesAreStoredAndReadBack)
{
    Properties properties;
    for (int byte = 0; byte < 256; ++byte) {
        const String text(3, static_cast<char>(byte));
        properties.setProperty("k" + text, "v" + text);
        properties.setProperty("z" + std::to_string(byte) + String(1, '\0') + "\x80", text);
    }
    std::stringstream stream;
    properties.store(stream, "");
    const Properties read(stream, true);
    std::size_t kept = 0;
    for (const auto& [key, value] : properties) {
        const bool splits = key.find_first_of(" \t\n\v\f\r=:") != String::npos;
        const bool is_trimmed = value.find_first_not_of(" \t\n\v\f\r") != 0;
        if (!splits && !is_trimmed) {
            EXPECT_EQ(value, read.getProperty(key, "missing"));
            ++kept;
        }
    }
    EXPECT_EQ(248U + 250U, kept);
}

class HostileIncludes : public testing::Test
{
protected:
    String load(const String& name)
    {
        std::ifstream stream(scratch.file(name));
        std::ostringstream unused;
        try {
            properties.load(stream, scratch.file(name), unused, unused, Properties::SEV_ERROR, false);
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "loaded";
    }

    support::ScratchFolder scratch;
    Properties properties;
};

TEST_F(HostileIncludes, CycleThatNeverRepeatsASpellingIsReadOnce)
{
    support::writeFile(scratch.file("a.conf"), "a=1\n%pragma include \"./a.conf\"\nb=1\n");
    EXPECT_EQ("loaded", load("a.conf"));
    EXPECT_EQ(2U, properties.size());
}

TEST_F(HostileIncludes, ConsecutiveIncludesUseOneDescriptor)
{
    constexpr int FILES = 2000;
    String all;
    for (int i = 0; i < FILES; ++i) {
        const String name = std::to_string(i);
        all += "%pragma include \"" + name + "\"\n";
        support::writeFile(scratch.file(name), "key" + name + "=" + name + "\n");
    }
    support::writeFile(scratch.file("all.conf"), all);
    rlimit before = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    rlimit few = before;
    few.rlim_cur = 64;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    EXPECT_EQ("loaded", load("all.conf"));
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(static_cast<std::size_t>(FILES), properties.size());
}

TEST_F(HostileIncludes, PipeIsReadToItsEnd)
{
    ASSERT_EQ(0, mkfifo(scratch.file("pipe").c_str(), 0600));
    support::writeFile(scratch.file("a.conf"), "%pragma include \"pipe\"\na=1\n");
    std::thread writer([this] { support::writeFile(scratch.file("pipe"), "p=1\nq=2"); });
    EXPECT_EQ("loaded", load("a.conf"));
    writer.join();
    EXPECT_EQ("2", properties.getProperty("q"));
    EXPECT_EQ(3U, properties.size());
}

/** Counts the bytes written and sums them up. */
class Sink : public std::streambuf
{
public:
    std::size_t count = 0;
    unsigned char last = 0;

protected:
    std::streamsize xsputn(const char* from, std::streamsize length) override
    {
        count += static_cast<std::size_t>(length);
        last = length > 0 ? static_cast<unsigned char>(from[length - 1]) : last;
        return length;
    }
    int_type overflow(int_type c) override
    {
        ++count;
        last = static_cast<unsigned char>(c);
        return traits_type::not_eof(c);
    }
};

TEST(HostileBase64, StreamsUseConstantMemory)
{
    const std::size_t times = (support::isLongRun() ? 1024 : 32) * MEBIBYTE / PIECE;
    const auto check = [times](const String& piece, bool encode, std::size_t expected) {
        GeneratedText text(GeneratedText::repeated("", piece, times, ""));
        std::istream is(&text);
        Sink sink;
        std::ostream os(&sink);
        const support::PeakMemory memory;
        if (encode) {
            Base64().encode(os, is);
        } else {
            Base64().decode(os, is, Base64::DEC_SKIP_INVALID);
        }
        EXPECT_EQ(expected, sink.count);
        if (support::measuresMemory()) {
            EXPECT_LE(memory.growth(), MEBIBYTE);
        }
    };
    const std::size_t bytes = times * PIECE;
    check(String(PIECE, '\xff'), true, (bytes + 2) / 3 * 4);
    check(String(PIECE, 'A'), false, bytes / 4 * 3);
    check(String(PIECE / 2, '*') + String(PIECE / 2, 'A'), false, bytes / 2 / 4 * 3);
    check(String(PIECE - 4, '\0') + "QUJD", false, times * 3);
}

TEST(HostileBase64, LongTextsRoundTrip)
{
    const std::size_t size = (support::isLongRun() ? 256 : 4) * MEBIBYTE + 1;
    const String data(size, '\x80');
    const support::PeakMemory memory;
    const String text = Base64().encode(data);
    ASSERT_EQ((size + 2) / 3 * 4, text.size());
    EXPECT_TRUE(Base64().decode(text) == data);
    RecordProperty("growth", std::to_string(memory.growth() / MEBIBYTE));
    if (support::measuresMemory()) {
        // The copies in two string streams, one of which doubles its capacity, and the result.
        EXPECT_LE(memory.growth(), 9 * size);
    }
}

}
