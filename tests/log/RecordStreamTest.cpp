// The stream of a record behaves like a std::ostringstream, in records of statements and of programs.

#define NIM_LOG_FILE "tests/log/RecordStream"

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Statement.hpp>

#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <locale>
#include <ostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include <support/StandardLibrary.hpp>

namespace {

using namespace logtest;
using log::Header;
using log::Module;

/** Groups digits in threes, separated by a dot. */
class Grouping : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override
    {
        return '.';
    }
    std::string do_grouping() const override
    {
        return "\3";
    }
};

/** The observable state of a stream that an operation has left. */
template <class Stream>
String stateOf(Stream& stream)
{
    std::ostringstream state;
    state << "text '" << stream.str() << "' state " << stream.rdstate() << " exceptions "
          << stream.exceptions() << " flags " << stream.flags() << " precision " << stream.precision()
          << " width " << stream.width() << " fill " << stream.fill() << " tied "
          << (stream.tie() != nullptr);
    stream.exceptions(std::ios_base::goodbit);
    stream.clear();
    state << " position " << stream.tellp();
    return state.str();
}

/** Runs `operation`, and returns what it has left, with the exception that it has thrown. */
template <class Stream, class Operation>
String resultOf(Stream& stream, Operation operation)
{
    String thrown = "nothing thrown, ";
    try {
        operation(stream);
    } catch (const std::ios_base::failure&) {
        thrown = "ios_base::failure thrown, ";
    } catch (const std::exception& exception) {
        thrown = String(exception.what()) + " thrown, ";
    }
    return thrown + stateOf(stream);
}

class RecordStreamTest : public testing::Test
{
protected:
    RecordStreamTest() : module("tests", logger.write) {}

    /**
     * Expects of each kind of record what a std::ostringstream does: of one that the test constructs, of a
     * statement's, also if it was used before, and of a statement's within that.
     */
    template <class Operation>
    void expectAsInAStringStream(Operation operation)
    {
        std::ostringstream model;
        const String expected = resultOf(model, operation);
        {
            Header header(log::Severity_ERROR, "x/Source", 1);
            EXPECT_EQ(expected, resultOf(header, operation)) << "constructed by the test";
        }
        for (int i = 0; i < 3; ++i) {
            log::Statement outer(module, log::Severity_ERROR);
            EXPECT_EQ(expected, resultOf(outer.header("x/Source", 1), operation)) << "statement " << i;
            log::Statement inner(module, log::Severity_ERROR);
            EXPECT_EQ(expected, resultOf(inner.header("x/Source", 1), operation)) << "nested statement " << i;
        }
    }

    OwnLogger logger;
    Module module;
};

TEST_F(RecordStreamTest, InsertionsAreThoseOfAStringStream)
{
    expectAsInAStringStream([](std::ostream&) {});
    expectAsInAStringStream(
        [](std::ostream& os) { os << "text" << String("string") << 'c' << 12 << true << 1.5; });
    expectAsInAStringStream([](std::ostream& os) { os << std::endl << std::flush << std::ends << ""; });
    expectAsInAStringStream(
        [](std::ostream& os) { os.put('a').put('\0').write("b\0c", 3).put('d').flush(); });
    expectAsInAStringStream(
        [](std::ostream& os) { os << std::setw(8) << std::setfill('*') << 42 << std::setw(3); });
    expectAsInAStringStream(
        [](std::ostream& os) { os << std::hex << std::showbase << std::left << std::setw(6) << 255 << '|'; });
    expectAsInAStringStream([](std::ostream& os) { os << std::setprecision(2) << std::fixed << 1.0 / 3; });
    expectAsInAStringStream([](std::ostream& os) { os << std::boolalpha << false << std::unitbuf << "x"; });
    expectAsInAStringStream([](std::ostream& os) {
        const std::istringstream source("from another buffer");
        os << source.rdbuf();
    });
}

TEST_F(RecordStreamTest, OneCharacterMayBeInsertedAtATime)
{
    expectAsInAStringStream([](std::ostream& os) {
        for (int i = 0; i < 20000; ++i) {
            os.put(static_cast<char>('a' + i % 26));
        }
    });
    expectAsInAStringStream([](std::ostream& os) {
        for (int i = 0; i < 3000; ++i) {
            os.rdbuf()->sputc(static_cast<char>('0' + i % 10));
        }
        os << os.rdbuf()->sputc('!') << os.rdbuf()->sputn("and more", 3);
    });
}

TEST_F(RecordStreamTest, TextsOfAllLengthsAreWhole)
{
    for (const unsigned int size :
         {1U, 15U, 16U, 511U, 512U, 513U, 1022U, 1023U, 1024U, 1025U, 3839U, 3840U, 4096U, 5000U, 1000000U}) {
        SCOPED_TRACE(size);
        const String text(size, 't');
        expectAsInAStringStream([&](std::ostream& os) { os << text; });
        expectAsInAStringStream([&](std::ostream& os) { os << text << 'c' << text << 17; });
    }
}

TEST_F(RecordStreamTest, PositionIsThatOfAStringStream)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "the std::stringbuf of libc++ without input crashes in sgetc()";
    }
    for (const std::ios_base::seekdir from : {std::ios_base::beg, std::ios_base::cur, std::ios_base::end}) {
        for (const int offset : {-7, -6, -3, -1, 0, 1, 3, 6, 7}) {
            SCOPED_TRACE(offset);
            expectAsInAStringStream([&](std::ostream& os) { (os << "abcdef").seekp(offset, from) << "XY"; });
            expectAsInAStringStream([&](std::ostream& os) {
                (os << "abcdef").seekp(2);
                os.seekp(offset, from) << "X";
            });
        }
    }
    expectAsInAStringStream([](std::ostream& os) { os.seekp(0) << "at the beginning"; });
    expectAsInAStringStream([](std::ostream& os) { os.seekp(1) << "not reached"; });
    expectAsInAStringStream([](std::ostream& os) { (os << "abc").seekp(1) << "a longer text than before"; });
    expectAsInAStringStream([](std::ostream& os) {
        const String text(3000, 't');
        (os << text).seekp(100) << String(2950, 'u');
    });
    expectAsInAStringStream([](std::ostream& os) {
        os << "abc";
        os << ' ' << os.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in) << ' '
           << os.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in | std::ios_base::out) << ' '
           << os.rdbuf()->pubseekpos(1, std::ios_base::in) << ' ' << os.rdbuf()->in_avail() << ' '
           << os.rdbuf()->sgetc() << ' ' << os.rdbuf()->pubsync();
    });
}

TEST_F(RecordStreamTest, FailuresAreThoseOfAStringStream)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "libc++ does not accept a null string";
    }
    const char* const nothing = nullptr;
    expectAsInAStringStream([&](std::ostream& os) { os << "seen" << nothing << "unseen"; });
    expectAsInAStringStream([](std::ostream& os) {
        os << "seen";
        os.setstate(std::ios_base::failbit);
        os << "unseen";
    });
    expectAsInAStringStream([&](std::ostream& os) {
        os.exceptions(std::ios_base::badbit);
        os << "seen" << nothing << "not reached";
    });
    expectAsInAStringStream([](std::ostream& os) {
        os.setstate(std::ios_base::failbit);
        os.exceptions(std::ios_base::failbit);
    });
    expectAsInAStringStream([](std::ostream& os) {
        os << "seen";
        throw std::runtime_error("an operand failed");
    });
}

TEST_F(RecordStreamTest, FormatsCanBeCopiedFromAndToAnotherStream)
{
    expectAsInAStringStream([](std::ostream& os) {
        std::ostringstream other;
        other << std::hex << std::uppercase << std::setfill('_') << std::setw(5);
        other.imbue(std::locale(std::locale::classic(), new Grouping));
        os.copyfmt(other);
        os << 1234567 << ' ' << 1;
    });
    expectAsInAStringStream([](std::ostream& os) {
        os << std::hex << std::setfill('_');
        std::ostringstream other;
        other.copyfmt(os);
        other << std::setw(6) << 255;
        os << other.str();
    });
    expectAsInAStringStream([](std::ostream& os) {
        os.imbue(std::locale(std::locale::classic(), new Grouping));
        os << 1234567;
    });
}

TEST_F(RecordStreamTest, OtherBufferReceivesWhatFollows)
{
    std::ostringstream other;
    expectAsInAStringStream([&](std::ostream& os) {
        std::streambuf* const own = os.rdbuf(other.rdbuf());
        os << "elsewhere ";
        os.rdbuf(own);
        os << "here again";
    });
    EXPECT_EQ(String("elsewhere elsewhere elsewhere elsewhere elsewhere elsewhere elsewhere elsewhere "),
              other.str());
    expectAsInAStringStream([](std::ostream& os) {
        std::streambuf* const own = os.rdbuf(nullptr);
        os << "nowhere";
        os.rdbuf(own);
        os << "here again";
    });
}

TEST_F(RecordStreamTest, ReplacedTextIsOverwritten)
{
    expectAsInAStringStream([](auto& os) { os.str("replaced"); });
    expectAsInAStringStream([](auto& os) {
        os << "a long text";
        os.str("replaced");
        os << "RE";
    });
    expectAsInAStringStream([](auto& os) {
        os << "text";
        os.str("");
        os << os.str().size();
    });
    expectAsInAStringStream([](auto& os) {
        os.str(String(100000, 'r'));
        os.seekp(0, std::ios_base::end);
        os << "and more";
    });
}

TEST_F(RecordStreamTest, RandomOperationsHaveTheSameResult)
{
    expectAsInAStringStream([](auto& os) {
        std::mt19937 random(20261122);
        const auto upTo = [&random](unsigned int limit) { return random() % limit; };
        for (int i = 0; i < 2000; ++i) {
            switch (upTo(8)) {
            case 0:
                os.put(static_cast<char>('a' + upTo(26)));
                break;
            case 1:
                os << String(upTo(upTo(40) == 0 ? 3000 : 30), static_cast<char>('A' + upTo(26)));
                break;
            case 2:
                os << std::setw(static_cast<int>(upTo(12))) << upTo(100000);
                break;
            case 3:
                os.seekp(static_cast<int>(upTo(200)) - 100, std::ios_base::cur);
                break;
            case 4:
                os.seekp(-static_cast<int>(upTo(100)), std::ios_base::end);
                break;
            case 5:
                os.seekp(static_cast<int>(upTo(5000)));
                break;
            case 6:
                if (upTo(20) == 0) {
                    os.str(String(upTo(2000), 's'));
                }
                break;
            default:
                static_cast<std::ostream&>(os).rdbuf()->sputn("block", static_cast<std::streamsize>(upTo(6)));
            }
            os.clear();
        }
    });
}

// ---- as a std::ostringstream ------------------------------------------------------------------

TEST_F(RecordStreamTest, ConstructedRecordIsTheStringStreamOfItsText)
{
    Header header(log::Severity_ERROR, "x/Source", 1);
    std::ostringstream& stream = header;
    header.os() << "disk " << 3;
    EXPECT_EQ("disk 3", stream.str());
    EXPECT_EQ("disk 3", stream.rdbuf()->str());
    stream.str("replaced");
    EXPECT_EQ("replaced", header.str());
    stream.rdbuf()->sputn("RE", 2);
    header << 'P';
    EXPECT_EQ("REPlaced", header.str());
    module += header;
    EXPECT_EQ("tests ERROR Source : REPlaced\n", logger.taken());
}

TEST_F(RecordStreamTest, ConstructedRecordCanBeMovedFromAndSwapped)
{
    Header header(log::Severity_ERROR, "x/Source", 1);
    std::ostringstream& stream = header;
    header << "moved";
    const std::ostringstream taken(std::move(stream));
    EXPECT_EQ("moved", taken.str());
    EXPECT_EQ("", header.str());
    header << "next";
    EXPECT_EQ("next", stream.str());

    std::ostringstream other;
    other << "swapped";
    stream.swap(other);
    EXPECT_EQ("next", other.str());
    EXPECT_EQ("swapped", header.str());
    module += header;
    EXPECT_EQ("tests ERROR Source : swapped\n", logger.taken());
}

TEST_F(RecordStreamTest, LoggerOfAnotherClassFindsTheTextInTheStringStream)
{
    struct Collecting : PlainLog
    {
        using PlainLog::log;
        void log(const Module&, const Header& rec, bool) override
        {
            const std::ostringstream& base = rec;
            texts.push_back(base.str());
            texts.push_back(rec.str());
        }
        StringColl texts;
    } collecting;
    Module collected("collected", collecting);
    NIM_LOG_TO(collected, Severity_ERROR) << "one " << 1;
    NIM_LOG_TO(collected, Severity_ERROR) << "two";
    NIM_LOG_TO(collected, Severity_ERROR);
    Header header(log::Severity_ERROR, "x/Source", 1);
    header << "three";
    collected += header;
    EXPECT_EQ((StringColl{"one 1", "one 1", "two", "two", "", "", "three", "three"}), collecting.texts);
}

// ---- as a line --------------------------------------------------------------------------------

TEST_F(RecordStreamTest, LoggedRecordKeepsItsText)
{
    for (const char* const text : {"", "text", "text \t\n", " \n "}) {
        Header header(log::Severity_ERROR, "x/Source", 1);
        header << text;
        module += header;
        EXPECT_EQ(text, header.str());

        log::Statement statement(module, log::Severity_ERROR);
        Header& record = statement.header("x/Source", 1);
        record << text;
        module += record;
        EXPECT_EQ(text, record.str());
        record << "and more";
        EXPECT_EQ(String(text) + "and more", record.str());
        logger.taken();
        module += record;
        EXPECT_EQ("tests ERROR Source : " + String(text) + "and more\n", logger.taken());
    }
}

TEST_F(RecordStreamTest, PrefixOfAnyLengthIsInFrontOfTheText)
{
    for (const unsigned int size : {1U, 200U, 229U, 230U, 256U, 257U, 1000U, 1280U, 5000U, 100000U}) {
        const String name(size, 'm');
        Module named(name, logger.write);
        for (const unsigned int length : {0U, 5U, 1023U, 1024U, 5000U}) {
            const String text(length, 't');
            NIM_LOG_TO(named, Severity_ERROR) << text;
            NIM_LOG_TO(named, Severity_ERROR) << text << 'x';
            const String prefix = name + " ERROR RecordStream : ";
            EXPECT_EQ(prefix + text + '\n' + prefix + text + "x\n", logger.taken());
        }
    }
}

TEST_F(RecordStreamTest, RecordOfOneSourceMayBeLoggedToSeveralLoggers)
{
    OwnLogger other(log::Mask_SEVERITY);
    Module elsewhere("a module with a longer name", other.write);
    log::Statement statement(module, log::Severity_ERROR);
    Header& record = statement.header("x/Source", 1);
    record << "text ";
    module += record;
    elsewhere += record;
    module += record;
    EXPECT_EQ("tests ERROR Source : text\ntests ERROR Source : text\n", logger.taken());
    EXPECT_EQ("ERROR : text\n", other.taken());
}

TEST_F(RecordStreamTest, NumbersOfThePrefixAreDecimal)
{
    for (const unsigned int line : {0U, 7U, 10U, 99U, 100U, 101U, 999U, 12345U, 4294967295U}) {
        OwnLogger numbers(log::Mask_LINENUMBER);
        Module numbered("m", numbers.write);
        Header header(log::Severity_ERROR, "x/Source", line);
        numbered += header;
        EXPECT_EQ(std::to_string(line) + " : \n", numbers.taken());
    }
}

TEST_F(RecordStreamTest, SourceFileIsTheNameAfterTheLastSlash)
{
    OwnLogger sources(log::Mask_SOURCEFILE);
    Module sourced("m", sources.write);
    for (const auto& [file, name] : {std::pair<const char*, const char*>("Plain.cpp", "Plain.cpp"),
                                     {"a/b/Deep.cpp", "Deep.cpp"},
                                     {"/Absolute.cpp", "Absolute.cpp"},
                                     {"directory/", ""},
                                     {"", ""}}) {
        Header header(log::Severity_ERROR, file, 1);
        sourced += header;
        log::Statement statement(sourced, log::Severity_ERROR);
        Header& record = statement.header(file, 1, log::Statement::baseName(file));
        sourced += record;
        EXPECT_EQ(String(name) + " : \n" + name + " : \n", sources.taken());
        EXPECT_EQ(file, record.getFile());
    }
}

/** Only a failure for lack of memory rejects a record, also if the text just fills the memory that it has. */
TEST_F(RecordStreamTest, FailureOfAnotherKindIsNoLackOfMemoryAtAnyLength)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "libc++ does not accept a null string";
    }
    const char* const nothing = nullptr;
    for (unsigned int size = 0; size < 4200; ++size) {
        const String text(size, 't');
        EXPECT_NO_THROW(NIM_LOG_TO(module, Severity_ERROR) << text << nothing << "unseen") << size;
        EXPECT_EQ("tests ERROR RecordStream : " + text + '\n', logger.taken());
        if (size % 64 == 0) {
            Header header(log::Severity_ERROR, "x/Source", 1);
            header << text << nothing << "unseen";
            EXPECT_NO_THROW(module += header) << size;
            EXPECT_EQ("tests ERROR Source : " + text + '\n', logger.taken());
        }
    }
}

}
