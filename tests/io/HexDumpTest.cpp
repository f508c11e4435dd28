#include <dalnim/io/HexDump.hpp>

#include <dalnim/sys/SysError.hpp>

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>
#include <support/LongRun.hpp>
#include <tests/io/PieceBuffer.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <functional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <sys/mman.h>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::HexDump;
using com::kor::dal::nim::sys::system_error;

String dump(const String& data, unsigned int flags = 0)
{
    return HexDump().encode(data, flags);
}

std::vector<String> rowsOf(const String& text)
{
    std::vector<String> rows;
    std::istringstream is(text);
    for (String row; std::getline(is, row);) {
        rows.push_back(row);
    }
    return rows;
}

TEST(HexDump, ShortRow)
{
    EXPECT_EQ("00000000: 41 42                                           | AB", dump("AB"));
    EXPECT_EQ("00000000: 48 65 6C 6C 6F 0A                               | Hello.", dump("Hello\n"));
}

TEST(HexDump, EmptyInputDumpsNothing)
{
    EXPECT_EQ("", dump(""));
}

TEST(HexDump, LastRowHasNoLineFeed)
{
    EXPECT_EQ("00000000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 | 0123456789abcdef",
              dump("0123456789abcdef"));
    EXPECT_EQ("00000000: 41 42 | AB", dump("AB", 2));
}

TEST(HexDump, LineFeedsSeparateRows)
{
    EXPECT_EQ("00000000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 | 0123456789abcdef\n"
              "00000010: 67                                              | g",
              dump("0123456789abcdefg"));
    EXPECT_EQ("00000000: 41 42 | AB\n00000002: 43 44 | CD\n00000004: 45    | E", dump("ABCDE", 2));
    EXPECT_EQ("00000000: 41 | A\n00000001: 42 | B", dump("AB", 1));
}

TEST(HexDump, WidthIsTheLowByteOfTheFlags)
{
    EXPECT_EQ(dump("0123456789abcdefg"), dump("0123456789abcdefg", 16));
    EXPECT_EQ(dump("0123456789abcdefg"), dump("0123456789abcdefg", 0xFFFFFF00));
    EXPECT_EQ("00000000: 41 | A\n00000001: 42 | B", dump("AB", 0x701));
}

TEST(HexDump, WidestRow)
{
    const auto rows = rowsOf(dump(String(256, 'x'), 255));
    ASSERT_EQ(2U, rows.size());
    EXPECT_EQ(9U + 255 * 3 + 3 + 255, rows[0].size());
    EXPECT_EQ("00000000: 78 78 78", rows[0].substr(0, 18));
    EXPECT_EQ("78 | xxx", rows[0].substr(9 + 255 * 3 - 2, 8));
    EXPECT_EQ("000000FF: 78    ", rows[1].substr(0, 16));
    EXPECT_EQ("    | x", rows[1].substr(9 + 255 * 3 - 3));
}

TEST(HexDump, OnlyPrintableBytesAreShown)
{
    for (int byte = 0; byte < 256; ++byte) {
        const String row = dump(String(1, static_cast<char>(byte)), 1);
        ASSERT_EQ(16U, row.size());
        EXPECT_EQ(byte >= 32 && byte <= 126 ? static_cast<char>(byte) : '.', row[15]) << byte;
    }
    EXPECT_EQ("00000000: 1F 20 7E 7F 80 FF | . ~...", dump("\x1f\x20\x7e\x7f\x80\xff", 6));
}

TEST(HexDump, DigitsAndOffsetsAreUpperCase)
{
    EXPECT_EQ("000000AB: AB CD ", rowsOf(dump(String(171, 'x') + "\xab\xcd", 171)).at(1).substr(0, 16));
    EXPECT_EQ("0000ABC0: ", rowsOf(dump(String(0xABC1, ' '))).back().substr(0, 10));
}

TEST(HexDump, IgnoresTheFormatFlags)
{
    std::istringstream is("ABC");
    std::ostringstream os;
    os << std::oct << std::showbase;
    os.width(40);
    os.fill('*');
    EXPECT_EQ(&os, &HexDump().encode(os, is, 2));
    EXPECT_EQ("00000000: 41 42 | AB\n00000002: 43    | C", os.str());
    EXPECT_TRUE((os.flags() & std::ios::oct) != 0);
    EXPECT_TRUE(is.eof());
    EXPECT_FALSE(is.fail());
}

/** Writes a mark at each flush. */
class Marks : public std::stringbuf
{
protected:
    int sync() override
    {
        sputc('~');
        return 0;
    }
};

TEST(HexDump, FlushesAfterEachRow)
{
    Marks marks;
    std::ostream os(&marks);
    std::istringstream is("ABC");
    HexDump().encode(os, is, 1);
    EXPECT_EQ("00000000: 41 | A\n~00000001: 42 | B\n~00000002: 43 | C~", marks.str());

    Marks nothing;
    std::ostream no(&nothing);
    std::istringstream empty;
    HexDump().encode(no, empty);
    EXPECT_EQ("~", nothing.str());
}

TEST(HexDump, ReadsEndOfFileOnce)
{
    for (const char* data : {"", "A", "AB", "ABC"}) {
        std::istringstream is(data);
        std::ostringstream os;
        HexDump().encode(os, is, 2);
        EXPECT_TRUE(is.eof()) << data;
        EXPECT_FALSE(is.fail()) << data;
    }
}

TEST(HexDump, PiecesOfAnySizeAreEquivalent)
{
    const String data = "The quick brown fox jumps over the lazy dog";
    const String expected = dump(data);
    for (const std::size_t piece : {0U, 1U, 3U, 16U, 17U, 100U}) {
        PieceBuffer pieces(data, piece);
        std::istream is(&pieces);
        std::ostringstream os;
        HexDump().encode(os, is);
        EXPECT_EQ(expected, os.str()) << piece;
    }
}

TEST(HexDump, ReadErrorThrowsSystemError)
{
    PieceBuffer pieces("0123456789", 3);
    pieces.before_piece = [](std::size_t position) {
        if (position == 6) {
            errno = EIO;
            throw std::runtime_error("lost");
        }
    };
    std::istream is(&pieces);
    std::ostringstream os;
    try {
        HexDump().encode(os, is, 4);
        FAIL();
    } catch (const system_error& error) {
        EXPECT_EQ(5, error.error());
        EXPECT_STREQ("Input/output error", error.what());
        EXPECT_EQ(0U, error.toString().find("com.kor.dal.nim.io.HexDump.encode():")) << error.toString();
    }
    EXPECT_EQ("00000000: 30 31 32 33 | 0123", os.str());
}

/** Accepts a number of bytes and of flushes, then fails with ENOSPC. */
class FullBuffer : public std::streambuf
{
public:
    FullBuffer(std::size_t room, int flushes) : bytes_left(room), flushes_left(flushes) {}

    String text;

protected:
    std::streamsize xsputn(const char* from, std::streamsize count) override
    {
        const std::size_t taken = std::min(static_cast<std::size_t>(count), bytes_left);
        text.append(from, taken);
        bytes_left -= taken;
        if (taken != static_cast<std::size_t>(count)) {
            errno = ENOSPC;
        }
        return static_cast<std::streamsize>(taken);
    }
    int_type overflow(int_type c) override
    {
        const char byte = traits_type::to_char_type(c);
        return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
    }
    int sync() override
    {
        if (flushes_left == 0) {
            errno = ENOSPC;
            return -1;
        }
        --flushes_left;
        return 0;
    }

private:
    std::size_t bytes_left;
    int flushes_left;
};

/** Dumps "ABCDE" in rows of two bytes, and returns the error number and the number of bytes read. */
std::pair<int, std::streamoff> failureOfDump(FullBuffer& buffer)
{
    std::istringstream is("ABCDE");
    std::ostream os(&buffer);
    try {
        HexDump().encode(os, is, 2);
    } catch (const system_error& error) {
        EXPECT_STREQ("No space left on device", error.what());
        EXPECT_EQ(0U, error.toString().find("com.kor.dal.nim.io.HexDump.encode():")) << error.toString();
        return {error.error(), is.eof() ? -1 : static_cast<std::streamoff>(is.tellg())};
    }
    return {0, -1};
}

TEST(HexDump, OutputThatFailsInARowThrowsSystemErrorAndReadsNoFurther)
{
    FullBuffer none(0, 9);
    EXPECT_EQ(std::make_pair(28, std::streamoff{2}), failureOfDump(none));
    EXPECT_EQ("", none.text);

    // Fails in the middle of the second row.
    FullBuffer some(25, 9);
    EXPECT_EQ(std::make_pair(28, std::streamoff{4}), failureOfDump(some));
    EXPECT_EQ("00000000: 41 42 | AB\n0000", some.text);
}

TEST(HexDump, OutputThatFailsInASeparatorThrowsSystemError)
{
    FullBuffer line_feed(20, 9);
    EXPECT_EQ(std::make_pair(28, std::streamoff{4}), failureOfDump(line_feed));
    EXPECT_EQ("00000000: 41 42 | AB", line_feed.text);

    FullBuffer flush(1000, 0);
    EXPECT_EQ(std::make_pair(28, std::streamoff{4}), failureOfDump(flush));
    EXPECT_EQ("00000000: 41 42 | AB\n", flush.text);
}

TEST(HexDump, OutputThatFailsInTheLastFlushThrowsSystemError)
{
    FullBuffer last(1000, 2);
    EXPECT_EQ(std::make_pair(28, std::streamoff{-1}), failureOfDump(last));
    EXPECT_EQ("00000000: 41 42 | AB\n00000002: 43 44 | CD\n00000004: 45    | E", last.text);

    std::istringstream nothing;
    FullBuffer full(0, 0);
    std::ostream os(&full);
    EXPECT_THROW(HexDump().encode(os, nothing), system_error);
}

TEST(HexDump, OutputThatFailedBeforeThrowsUnlessThereIsNothingToWrite)
{
    std::istringstream is("0123456789");
    std::ostream none(nullptr);
    errno = EIO;
    EXPECT_THROW(HexDump().encode(none, is), system_error);

    std::istringstream nothing;
    EXPECT_EQ(&none, &HexDump().encode(none, nothing));
    EXPECT_TRUE(none.bad());
}

TEST(HexDump, AgreesWithXxd)
{
    std::mt19937 random(16);
    const support::ScratchFolder scratch;
    for (const unsigned int width : {1U, 7U, 16U, 255U}) {
        String data(random() % 5000, '\0');
        for (char& c : data) {
            c = static_cast<char>(random());
        }
        support::writeFile(scratch.file("data"), data);
        const std::vector<std::string> command = {
            "/usr/bin/xxd", "-u", "-g", "1", "-c", std::to_string(width), scratch.file("data")};
        support::ChildProcess xxd(command, scratch.path());
        ASSERT_EQ(0, xxd.wait()) << xxd.errors();

        // xxd writes offsets in lower case, two spaces in place of the bar, and a final line feed.
        String expected;
        for (String row : rowsOf(xxd.output())) {
            std::transform(row.begin(), row.begin() + 8, row.begin(), [](char c) { return std::toupper(c); });
            row.replace(9 + 3 * width, 2, " | ");
            expected += (expected.empty() ? "" : "\n") + row;
        }
        EXPECT_EQ(expected, dump(data, width)) << width;
    }
}

TEST(HexDump, OffsetsWrapAround)
{
    if (!support::isLongRun()) {
        GTEST_SKIP() << "dumps 4 GiB: only with --long";
    }
    class Zeros : public std::streambuf
    {
    public:
        Zeros(char* begin, std::size_t length)
        {
            setg(begin, begin, begin + length);
        }
    };
    class Tail : public std::streambuf
    {
    public:
        String text;

    protected:
        std::streamsize xsputn(const char* from, std::streamsize length) override
        {
            text.erase(0, text.size() > 2000 ? text.size() - 1000 : 0);
            text.append(from, static_cast<std::size_t>(length));
            return length;
        }
        int_type overflow(int_type c) override
        {
            text += traits_type::to_char_type(c);
            return c;
        }
    };
    constexpr std::size_t LENGTH = (std::size_t{1} << 32) + 129;
    void* const memory = mmap(nullptr, LENGTH, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(MAP_FAILED, memory);
    Zeros zeros(static_cast<char*>(memory), LENGTH);
    std::istream is(&zeros);
    Tail tail;
    std::ostream os(&tail);
    HexDump().encode(os, is, 128);
    munmap(memory, LENGTH);

    // An offset of 0 has no separator before it.
    const auto rows = rowsOf(tail.text);
    ASSERT_LE(2U, rows.size());
    EXPECT_EQ("00000080: 00 ", rows.back().substr(0, 13));
    const String& seam = rows[rows.size() - 2];
    EXPECT_EQ("FFFFFF80: 00 ", seam.substr(0, 13));
    EXPECT_EQ(".00000000: 00 ", seam.substr(9 + 3 * 128 + 3 + 127, 14));
}

}
