// The overloads for streams: where they stop, which bytes they leave unread, and how they fail. The program
// with the scalar loops runs these tests, too.

#include <dalnim/io/Base64.hpp>

#include <dalnim/sys/SysError.hpp>

#include <tests/io/Base64Model.hpp>
#include <tests/io/PieceBuffer.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Base64;
using com::kor::dal::nim::sys::system_error;

constexpr unsigned int LINES = 256;
constexpr unsigned int SKIP = 512;

/** Accepts a number of bytes, then fails with an error number. Counts the calls. */
class Sink : public std::streambuf
{
public:
    explicit Sink(std::size_t room = static_cast<std::size_t>(-1), int number = ENOSPC)
        : left(room), error(number)
    {
    }

    String text;
    int flushed = 0;

protected:
    std::streamsize xsputn(const char* from, std::streamsize count) override
    {
        const std::size_t taken = std::min(static_cast<std::size_t>(count), left);
        text.append(from, taken);
        left -= taken;
        if (taken != static_cast<std::size_t>(count)) {
            errno = error;
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
        ++flushed;
        return 0;
    }

private:
    std::size_t left;
    const int error;
};

/** Returns the error number and the message; 0 and an empty one if nothing was thrown. */
std::pair<int, String> failure(const std::function<void()>& action)
{
    try {
        action();
    } catch (const system_error& error) {
        return {error.error(), error.what()};
    }
    return {0, ""};
}

const std::pair<int, String> NO_SPACE{28, "No space left on device"};
const std::pair<int, String> IO_ERROR{5, "Input/output error"};

TEST(Base64Stream, EncodesToTheEnd)
{
    std::istringstream is("ABCDEFG");
    std::ostringstream os;
    EXPECT_EQ(&os, &Base64().encode(os, is));
    EXPECT_EQ("QUJDREVGRw==", os.str());
    EXPECT_TRUE(is.eof());
    EXPECT_FALSE(is.fail());
}

TEST(Base64Stream, EncodesFromTheCurrentPosition)
{
    std::istringstream is("skip ABC");
    String word;
    is >> word >> std::ws;
    std::ostringstream os;
    Base64().encode(os, is);
    EXPECT_EQ("QUJD", os.str());
}

TEST(Base64Stream, FlushesOnceAtTheEnd)
{
    for (const char* text : {"", "QQ==", "QUJD", "=", "QUJD="}) {
        Sink sink;
        std::ostream os(&sink);
        std::istringstream is(text);
        Base64().encode(os, is);
        EXPECT_EQ(1, sink.flushed) << text;
        is.clear();
        is.seekg(0);
        Base64().decode(os, is);
        EXPECT_EQ(2, sink.flushed) << text;
    }
}

TEST(Base64Stream, IgnoresTheFormatFlags)
{
    std::istringstream is("ABC");
    std::ostringstream os;
    os.width(10);
    os.fill('*');
    Base64().encode(os, is);
    EXPECT_EQ("QUJD", os.str());
    EXPECT_EQ(10, os.width());
}

TEST(Base64Stream, KeepsWhiteSpaceOfData)
{
    std::istringstream is(" \n ");
    std::ostringstream os;
    Base64().encode(os, is);
    EXPECT_EQ("IAog", os.str());
}

/** Decodes `text` and returns the output, "!" for an error, "|", and the rest that was not read. */
String restOf(const String& text, unsigned int flags = 0)
{
    std::istringstream is(text);
    std::ostringstream os;
    try {
        Base64().decode(os, is, flags);
    } catch (const std::invalid_argument&) {
        os << "!";
    }
    const bool end = is.eof();
    is.clear();
    String rest;
    std::getline(is, rest, '\0');
    return os.str() + "|" + rest + (end ? "|end" : "");
}

TEST(Base64Stream, StopsAfterAPaddedGroup)
{
    EXPECT_EQ("A|", restOf("QQ=="));
    EXPECT_EQ("A|\nmore", restOf("QQ==\nmore"));
    EXPECT_EQ("AB|=", restOf("QUI=="));
    EXPECT_EQ("ABCA|*", restOf("QUJDQQ==*"));
}

TEST(Base64Stream, StopsBeforePaddingAtTheStartOfAGroup)
{
    EXPECT_EQ("|=QQ", restOf("=QQ"));
    EXPECT_EQ("ABC|=", restOf("QUJD="));
    EXPECT_EQ("ABC|==", restOf("QUJD\n=="));
}

TEST(Base64Stream, ReadsToEndOfFileWithoutPadding)
{
    EXPECT_EQ("||end", restOf(""));
    EXPECT_EQ("ABC||end", restOf("QUJD"));
    EXPECT_EQ("ABC||end", restOf("QUJD \n"));
    EXPECT_EQ("!||end", restOf("QQ="));
}

TEST(Base64Stream, StopsBeforeAnInvalidByte)
{
    EXPECT_EQ("!|*JD", restOf("QU*JD"));
    EXPECT_EQ("ABC!|*JD", restOf("QUJDQU*JD"));
    EXPECT_EQ("!|\n=", restOf("QQ=\n="));
    EXPECT_EQ("!|\n=", restOf("QQ=\n=", SKIP));
    EXPECT_EQ("!|A", restOf("QQ=A"));
    // The group is illegal only once a third padding character is read.
    EXPECT_EQ("ABC!|QUJD", restOf("QUJDQ===QUJD"));
}

TEST(Base64Stream, WritesAllGroupsBeforeAnError)
{
    for (const std::size_t groups : {1U, 7U, 11U, 2047U, 2048U, 2049U, 5000U}) {
        String text;
        String data;
        for (std::size_t i = 0; i < groups; ++i) {
            text += "QUJD";
            data += "ABC";
        }
        EXPECT_EQ(data + "!|*", restOf(text + "QU*"));
        EXPECT_EQ(data + "!||end", restOf(text + "Q"));
    }
}

TEST(Base64Stream, DecodesConsecutiveTexts)
{
    std::istringstream is("QQ==Qg==QUJD");
    std::ostringstream os;
    const Base64 base64;
    base64.decode(os, is) << ',';
    base64.decode(os, is) << ',';
    base64.decode(os, is) << ',';
    EXPECT_EQ("A,B,ABC,", os.str());
}

TEST(Base64Stream, EmptyInputDecodesToNothing)
{
    std::istringstream is("");
    is.get();
    ASSERT_TRUE(is.eof());
    std::ostringstream os;
    Base64().encode(os, is);
    Base64().decode(os, is);
    EXPECT_EQ("", os.str());
}

TEST(Base64Stream, PiecesOfAnySizeAreEquivalent)
{
    std::mt19937 random(76);
    for (const std::size_t piece : {0U, 1U, 2U, 3U, 4U, 5U, 31U, 57U, 100U, 8191U}) {
        for (int i = 0; i < 30; ++i) {
            String data(random() % 600, '\0');
            for (char& c : data) {
                c = static_cast<char>(random());
            }
            PieceBuffer pieces(data, piece);
            std::istream is(&pieces);
            std::ostringstream os;
            Base64().encode(os, is, LINES);
            const String text = base64model::encoded(data, 76);
            ASSERT_EQ(text, os.str()) << piece;

            PieceBuffer text_pieces(text + "=", piece);
            std::istream text_is(&text_pieces);
            std::ostringstream data_os;
            Base64().decode(data_os, text_is);
            ASSERT_EQ(data, data_os.str()) << piece;
            const std::size_t unread = text_pieces.position();
            ASSERT_EQ(base64model::decoded(text + "=", false).position, unread) << piece;
        }
    }
}

TEST(Base64Stream, StandardInputWithoutABufferIsRead)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(13, write(ends[1], "QUJD\nQQ==tail", 13));
    close(ends[1]);
    const int saved = dup(STDIN_FILENO);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);

    std::ostringstream os;
    Base64().decode(os, std::cin);
    String rest;
    std::cin >> rest;
    std::cin.clear();
    clearerr(stdin);
    dup2(saved, STDIN_FILENO);
    close(saved);
    EXPECT_EQ("ABCA", os.str());
    EXPECT_EQ("tail", rest);
}

TEST(Base64Stream, WritesOutputBeforeItBlocksForInput)
{
    // The writer sends more only after it has received the output, as in a dialogue.
    Sink sink;
    std::ostream os(&sink);
    PieceBuffer pieces("QUJDREVGR0hJ", 4);
    pieces.before_piece = [&](std::size_t position) { EXPECT_EQ(position / 4 * 3, sink.text.size()); };
    std::istream is(&pieces);
    Base64().decode(os, is);
    EXPECT_EQ("ABCDEFGHI", sink.text);

    Sink encoded;
    std::ostream text(&encoded);
    PieceBuffer data("ABCDEFGHI", 4);
    data.before_piece = [&](std::size_t position) { EXPECT_EQ(position / 3 * 4, encoded.text.size()); };
    std::istream data_is(&data);
    Base64().encode(text, data_is);
    EXPECT_EQ("QUJDREVGR0hJ", encoded.text);
}

TEST(Base64Stream, InputAndOutputMayShareABuffer)
{
    String data;
    for (int i = 0; i < 20000; ++i) {
        data += std::to_string(i);
    }
    std::stringstream both(Base64().encode(data, LINES));
    Base64().decode(both, both);
    EXPECT_EQ(data, both.str().substr(0, data.size()));
}

TEST(Base64Stream, ReadErrorThrowsSystemError)
{
    for (const std::size_t at : {0U, 4U, 8U}) {
        PieceBuffer pieces("QUJDREVGR0hJ", 4);
        pieces.before_piece = [&](std::size_t position) {
            if (position == at) {
                errno = EIO;
                throw std::runtime_error("lost");
            }
        };
        std::istream is(&pieces);
        std::ostringstream os;
        EXPECT_EQ(IO_ERROR, failure([&] { Base64().decode(os, is); }));
        EXPECT_EQ(String("ABCDEF").substr(0, at / 4 * 3), os.str());
        EXPECT_TRUE(is.bad());

        PieceBuffer again("QUJDREVGR0hJ", 4);
        again.before_piece = pieces.before_piece;
        std::istream data(&again);
        std::ostringstream text;
        EXPECT_EQ(IO_ERROR, failure([&] { Base64().encode(text, data); }));
        EXPECT_EQ(String("UVVKRFJF").substr(0, at / 3 * 4), text.str());
    }
}

TEST(Base64Stream, ExceptionOfTheInputPropagates)
{
    PieceBuffer pieces("QUJD", 2);
    pieces.before_piece = [](std::size_t position) {
        if (position == 2) {
            throw std::domain_error("lost");
        }
    };
    std::istream is(&pieces);
    is.exceptions(std::ios::badbit);
    std::ostringstream os;
    EXPECT_THROW(Base64().decode(os, is), std::domain_error);
    EXPECT_EQ("", os.str());
}

TEST(Base64Stream, InputThatThrowsAtEndOfFile)
{
    std::istringstream is("ABC");
    is.exceptions(std::ios::eofbit);
    std::ostringstream os;
    EXPECT_THROW(Base64().encode(os, is), std::ios::failure);
    EXPECT_EQ("QUJD", os.str());
}

TEST(Base64Stream, InputThatHadFailedThrowsSystemError)
{
    for (const std::ios::iostate state : {std::ios::failbit, std::ios::badbit}) {
        std::istringstream is("QUJD");
        is.setstate(state);
        std::ostringstream os;
        errno = EIO;
        EXPECT_EQ(IO_ERROR, failure([&] { Base64().encode(os, is); }));
        errno = EIO;
        EXPECT_EQ(IO_ERROR, failure([&] { Base64().decode(os, is); }));
        EXPECT_EQ("", os.str());
    }
    std::istream none(nullptr);
    std::ostringstream os;
    errno = EIO;
    EXPECT_EQ(IO_ERROR, failure([&] { Base64().encode(os, none); }));
}

TEST(Base64Stream, WriteErrorThrowsSystemError)
{
    for (const std::size_t room : {0U, 3U, 5U}) {
        Sink sink(room);
        std::ostream os(&sink);
        std::istringstream is("ABCDEF");
        EXPECT_EQ(NO_SPACE, failure([&] { Base64().encode(os, is); }));
        EXPECT_EQ(String("QUJDREVG").substr(0, room), sink.text);
        EXPECT_EQ(0, sink.flushed);

        Sink data(room);
        std::ostream data_os(&data);
        std::istringstream text("QUJDREVG");
        EXPECT_EQ(NO_SPACE, failure([&] { Base64().decode(data_os, text); }));
        EXPECT_EQ(String("ABCDEF").substr(0, room), data.text);
    }
}

TEST(Base64Stream, WriteErrorIsReportedBeforeALaterFormatError)
{
    Sink sink(0);
    std::ostream os(&sink);
    std::istringstream is("QUJD*");
    EXPECT_EQ(NO_SPACE, failure([&] { Base64().decode(os, is); }));
}

TEST(Base64Stream, WriteErrorOfThePaddedGroupThrowsSystemError)
{
    Sink sink(4);
    std::ostream os(&sink);
    std::istringstream is("ABCD");
    EXPECT_EQ(NO_SPACE, failure([&] { Base64().encode(os, is); }));
    EXPECT_EQ("QUJD", sink.text);
}

TEST(Base64Stream, FailedOutputIsIgnoredIfNothingIsWritten)
{
    std::istringstream is("");
    std::ostringstream os;
    os.setstate(std::ios::badbit);
    EXPECT_NO_THROW(Base64().encode(os, is));
    EXPECT_NO_THROW(Base64().decode(os, is));
    EXPECT_TRUE(os.bad());
}

/** Buffers all output; fails when it is flushed. */
class UnflushableBuffer : public std::stringbuf
{
protected:
    int sync() override
    {
        errno = ENOSPC;
        return -1;
    }
};

TEST(Base64Stream, OutputThatFailsInTheLastFlushThrowsSystemError)
{
    for (const char* data : {"", "QUJD", "QQ=="}) {
        UnflushableBuffer encoded;
        std::ostream text(&encoded);
        std::istringstream is(data);
        EXPECT_EQ(NO_SPACE, failure([&] { Base64().encode(text, is); })) << data;
        EXPECT_EQ(Base64().encode(String(data)), encoded.str());

        UnflushableBuffer decoded;
        std::ostream os(&decoded);
        std::istringstream again(data);
        EXPECT_EQ(NO_SPACE, failure([&] { Base64().decode(os, again); })) << data;
        EXPECT_EQ(Base64().decode(String(data)), decoded.str());
    }
}

TEST(Base64Stream, FullDeviceThrowsWhenTheBufferIsFlushed)
{
    std::ofstream full("/dev/full");
    ASSERT_TRUE(full.is_open());
    std::istringstream is("ABCDEF");
    EXPECT_EQ(NO_SPACE, failure([&] { Base64().encode(full, is); }));
}

TEST(Base64Stream, FullDeviceThrowsSystemError)
{
    std::ofstream full;
    full.rdbuf()->pubsetbuf(nullptr, 0);
    full.open("/dev/full");
    ASSERT_TRUE(full.is_open());
    std::istringstream is("ABCDEF");
    EXPECT_EQ(NO_SPACE, failure([&] { Base64().encode(full, is); }));
}

TEST(Base64Stream, OperationIsNamedInTheTrace)
{
    std::istream none(nullptr);
    std::ostringstream os;
    try {
        Base64().decode(os, none);
        FAIL();
    } catch (const system_error& error) {
        EXPECT_EQ(0U, error.toString().find("com.kor.dal.nim.io.Base64.decode():")) << error.toString();
    }
}

/** Counts the output and stores its end. */
class Counter : public std::streambuf
{
public:
    std::size_t count = 0;
    String end;

protected:
    std::streamsize xsputn(const char* from, std::streamsize length) override
    {
        count += static_cast<std::size_t>(length);
        end.assign(from, static_cast<std::size_t>(length));
        return length;
    }
};

TEST(Base64Stream, BufferLargerThanIntIsRead)
{
#ifdef DALNIM_SANITIZED
    GTEST_SKIP() << "slow under a sanitizer";
#endif
    class Zeros : public std::streambuf
    {
    public:
        Zeros(char* begin, std::size_t length)
        {
            setg(begin, begin, begin + length);
        }
    };
    // All of it maps to one page of zeros, since it is only read.
    constexpr std::size_t LENGTH = (std::size_t{1} << 31) + 11;
    void* const memory = mmap(nullptr, LENGTH, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(MAP_FAILED, memory);
    Zeros zeros(static_cast<char*>(memory), LENGTH);
    std::istream is(&zeros);
    Counter counter;
    std::ostream os(&counter);
    Base64().encode(os, is);
    munmap(memory, LENGTH);
    EXPECT_EQ(2863311548U, counter.count);
    EXPECT_EQ("AA==", counter.end.substr(counter.end.size() - 4));
}

}
