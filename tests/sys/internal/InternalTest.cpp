#include <dalnim/sys/internal/Internal.hpp>

#include <dalnim/io/nsdefs.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/mem/nsdefs.hpp>
#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <dalnim/xml/nsdefs.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using namespace com::kor::dal::nim;
using sys::internal::find_path_substring;

struct Piece
{
    bool found;
    std::size_t offset;
    std::size_t length;
};

Piece piece_of(const char* path, std::size_t plen)
{
    Piece piece = {true, 99, 99};
    piece.found = find_path_substring(piece.offset, piece.length, path, plen);
    return piece;
}

TEST(Namespaces, NamesAreDotted)
{
    EXPECT_STREQ("com.kor.dal.nim", NAMESPACE_NAME);
    EXPECT_STREQ("com.kor.dal.nim.io", io::NAMESPACE_NAME);
    EXPECT_STREQ("com.kor.dal.nim.log", log::NAMESPACE_NAME);
    EXPECT_STREQ("com.kor.dal.nim.mem", mem::NAMESPACE_NAME);
    EXPECT_STREQ("com.kor.dal.nim.mt", mt::NAMESPACE_NAME);
    EXPECT_STREQ("com.kor.dal.nim.sys", sys::NAMESPACE_NAME);
    EXPECT_STREQ("com.kor.dal.nim.sys.internal", sys::internal::NAMESPACE_NAME);
    EXPECT_STREQ("com.kor.dal.nim.type", type::NAMESPACE_NAME);
    EXPECT_STREQ("com.kor.dal.nim.xml", xml::NAMESPACE_NAME);
}

TEST(Internal, TimeFormatsAreUnchanged)
{
    EXPECT_STREQ("%a %b %d %H:%M:%S %z %Y", sys::internal::LOCAL_TIME_FORMAT);
    EXPECT_STREQ("%a %b %d %H:%M:%S UTC %Y", sys::internal::UTC_TIME_FORMAT);
}

TEST(Internal, NetworkFunctionsReturnZero)
{
    EXPECT_EQ(0, sys::internal::net_init());
    EXPECT_EQ(0, sys::internal::net_fini());
}

TEST(Internal, NullReferenceIsReportedWithTheStackTrace)
{
    const sys::StackTrack outer("outer()", "Outer", "name.space", 11);
    const sys::StackTrack inner("inner()", 22);
    try {
        sys::internal::throw_null_ref_exception("Nothing is held.");
        FAIL();
    } catch (const std::logic_error& failure) {
        EXPECT_STREQ("Nothing is held.\n"
                     "  [1]\tinner():22\n"
                     "  [0]\tname.space.Outer.outer():11\n",
                     failure.what());
    }
}

TEST(Internal, NullReferenceIsReportedWithoutTracks)
{
    try {
        sys::internal::throw_null_ref_exception("Nothing is held.");
        FAIL();
    } catch (const std::logic_error& failure) {
        EXPECT_STREQ("Nothing is held.\n", failure.what());
    }
    try {
        sys::internal::throw_null_ref_exception(nullptr);
        FAIL();
    } catch (const std::logic_error& failure) {
        EXPECT_STREQ("\n", failure.what());
    }
}

TEST(FindPathSubstring, NullPathIsEmpty)
{
    for (const std::size_t plen : {std::size_t(0), std::size_t(5)}) {
        const Piece piece = piece_of(nullptr, plen);
        EXPECT_FALSE(piece.found);
        EXPECT_EQ(0U, piece.offset);
        EXPECT_EQ(0U, piece.length);
    }
}

TEST(FindPathSubstring, RemovesSpacesQuotesAndSeparatorsInThisOrder)
{
    const struct
    {
        const char* path;
        std::size_t offset;
        std::size_t length;
    } table[] = {
        {"/x/y", 0, 4},
        {" '/x/y/' ", 2, 4},
        {"  \"/tmp/\"  ", 3, 4},
        {" \t\n\v\f\r/x", 6, 2},
        {"/x \t\n\v\f\r", 0, 2},
        {"\"'\"'x'\"'\"", 4, 1},
        {"x//\\\\/", 0, 1},
        {"\\\\host\\share\\", 0, 12},
        {"a b", 0, 3},
        {"a'b\"c", 0, 5},
        {"it's", 0, 4},
        // A run of a kind that has had its turn stays.
        {"' x", 1, 2},
        {"x /", 0, 2},
        {"x'/", 0, 2},
        {"x/'/", 0, 3},
        {"x/ /", 0, 3},
        {"x '", 0, 2},
        {"x' '", 0, 3},
        {"x/' ", 0, 1},
        {"/.", 0, 2},
        {"0", 0, 1},
        {"\xc2\xa0x\xc3\xa0", 0, 5},
    };
    for (const auto& row : table) {
        for (const std::size_t plen : {std::size_t(0), std::string(row.path).length()}) {
            const Piece piece = piece_of(row.path, plen);
            EXPECT_TRUE(piece.found) << row.path;
            EXPECT_EQ(row.offset, piece.offset) << row.path;
            EXPECT_EQ(row.length, piece.length) << row.path;
        }
    }
}

TEST(FindPathSubstring, ReturnsFalseIfNothingRemains)
{
    const struct
    {
        const char* path;
        std::size_t offset;
    } table[] = {
        {"", 0}, {"/", 0}, {"///", 0}, {"\\", 0}, {" ", 1}, {"  \t", 3}, {"''", 2}, {" \"\" ", 3}, {"'/'", 1},
    };
    for (const auto& row : table) {
        for (const std::size_t plen : {std::size_t(0), std::string(row.path).length()}) {
            const Piece piece = piece_of(row.path, plen);
            EXPECT_FALSE(piece.found) << row.path;
            EXPECT_EQ(row.offset, piece.offset) << row.path;
            EXPECT_EQ(0U, piece.length) << row.path;
        }
    }
}

TEST(FindPathSubstring, DoesNotReadBeyondTheGivenLength)
{
    const Piece piece = piece_of("/x/yz", 3);
    EXPECT_TRUE(piece.found);
    EXPECT_EQ(0U, piece.offset);
    EXPECT_EQ(2U, piece.length);

    const char unterminated[] = {' ', ' ', '\''};
    const Piece nothing = piece_of(unterminated, sizeof unterminated);
    EXPECT_FALSE(nothing.found);
    EXPECT_EQ(3U, nothing.offset);
    EXPECT_EQ(0U, nothing.length);
}

}
