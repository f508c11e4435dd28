#include <qv/rtlapi/RX_FilespecIterator.hpp>

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Scratch.hpp"

#include <qv/rtlapi/RX_ExError.hpp>

namespace {

using qvtest::AsNobody;
using qvtest::Scratch;
using testing::ElementsAre;
using testing::IsEmpty;

typedef qvtest::NeedsRoot RX_FilespecIteratorAsRoot;

RX_Filespec specOf(const std::string& text)
{
    return RX_Filespec(text.c_str(), RX_Filespec::DONTCARE, 1);
}

std::vector<std::string> findFiles(const RX_Filespec& spec, qv_bool_t withDirectory = 0)
{
    std::vector<std::string> names;
    RX_FilespecIterator iterator(spec, withDirectory);
    while (iterator.next()) {
        names.emplace_back(iterator.filespec().data());
    }
    return names;
}

TEST(RX_FilespecIterator, FindsTheNumberedFiles)
{
    const Scratch scratch;
    for (const char* const name :
         {"log", "log.0", "log.5", "log.10", "log.x", "log.", "log.1x", "log.1.2", "xlog.1"}) {
        scratch.file(name);
    }
    EXPECT_THAT(findFiles(specOf(scratch.path("log.<->"))), ElementsAre("log.0", "log.10", "log.5"));
}

TEST(RX_FilespecIterator, NamesIncludeTheDirectoryIfRequested)
{
    const Scratch scratch;
    scratch.file("b.log");
    scratch.file("a.log");
    EXPECT_THAT(findFiles(specOf(scratch.path("*.log")), 1),
                ElementsAre(scratch.path("a.log"), scratch.path("b.log")));
    EXPECT_THAT(findFiles(specOf(scratch.path("*.log")), 0), ElementsAre("a.log", "b.log"));
}

TEST(RX_FilespecIterator, SortsBytewise)
{
    const Scratch scratch;
    for (const char* const name : {"b", "B", "a", "\xc3\xa4", "10", "9", "_"}) {
        scratch.file(name);
    }
    EXPECT_THAT(findFiles(specOf(scratch.path("*"))), ElementsAre("10", "9", "B", "_", "a", "b", "\xc3\xa4"));
}

TEST(RX_FilespecIterator, FindsAllFileTypesExceptDotAndDotDot)
{
    const Scratch scratch;
    scratch.directory("directory");
    scratch.file(".hidden");
    scratch.link("dangling", "nowhere");
    EXPECT_THAT(findFiles(specOf(scratch.path("*"))), ElementsAre(".hidden", "dangling", "directory"));
}

TEST(RX_FilespecIterator, NameWithoutWildcardsFindsTheFileItself)
{
    const Scratch scratch;
    scratch.file("log.0");
    EXPECT_THAT(findFiles(specOf(scratch.path("log.0"))), ElementsAre("log.0"));
    EXPECT_THAT(findFiles(specOf(scratch.path("log.1"))), IsEmpty());
    EXPECT_THAT(findFiles(specOf(scratch.path(""))), IsEmpty());
    EXPECT_THAT(findFiles(specOf(scratch.path("."))), IsEmpty());
}

TEST(RX_FilespecIterator, WildcardsInTheDirectoryAreLiteral)
{
    const Scratch scratch;
    scratch.directory("log[s]*\\");
    scratch.directory("logs");
    scratch.file("log[s]*\\/x.0");
    scratch.file("logs/x.1");
    EXPECT_THAT(findFiles(specOf(scratch.path("log[s]*\\/x.<->")), 1),
                ElementsAre(scratch.path("log[s]*\\/x.0")));
}

TEST(RX_FilespecIterator, QuotedNamesMatchLiterally)
{
    const Scratch scratch;
    for (const char* const name : {"a*[b]<->?\\.0", "a*[b]<->?\\.x", "aX[b]<->?\\.1", "a*b1X\\.2"}) {
        scratch.file(name);
    }
    RX_String pattern = specOf(scratch.path("a*[b]<->?\\")).quoted();
    pattern += RX_String(".<->");
    EXPECT_THAT(findFiles(RX_Filespec(pattern, RX_Filespec::DONTCARE, 1), 1),
                ElementsAre(scratch.path("a*[b]<->?\\.0")));
}

TEST(RX_FilespecIterator, BareNameIsInTheWorkingDirectory)
{
    const Scratch scratch;
    scratch.file("log.0");
    const std::string before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    const std::vector<std::string> names = findFiles(specOf("log.<->"), 1);
    std::filesystem::current_path(before);
    EXPECT_THAT(names, ElementsAre("log.0"));
}

TEST(RX_FilespecIterator, MissingDirectoryHasNoFilesAndAStatus)
{
    const Scratch scratch;
    RX_FilespecIterator iterator(specOf(scratch.path("missing/*")), 1);
    EXPECT_EQ(iterator.status(), 2);
    EXPECT_EQ(iterator.next(), 0);
    RX_FilespecIterator below(specOf(scratch.file("file") + "/*"), 1);
    EXPECT_EQ(below.status(), 20);
    EXPECT_EQ(below.next(), 0);
}

TEST_F(RX_FilespecIteratorAsRoot, UnreadableDirectoryHasNoFilesAndAStatus)
{
    const Scratch scratch;
    scratch.directory("hidden");
    scratch.file("hidden/file");
    scratch.directory("hidden", 0700);
    const AsNobody nobody;
    RX_FilespecIterator iterator(specOf(scratch.path("hidden/*")), 1);
    EXPECT_EQ(iterator.status(), 13);
    EXPECT_EQ(iterator.next(), 0);
}

TEST(RX_FilespecIterator, FilespecIsEmptyBeforeTheFirstAndAfterTheLastFile)
{
    const Scratch scratch;
    scratch.file("only");
    RX_FilespecIterator iterator(specOf(scratch.path("*")), 0);
    EXPECT_EQ(iterator.status(), 0);
    EXPECT_EQ(iterator.filespec(), "");
    EXPECT_EQ(iterator.next(), 1);
    EXPECT_EQ(iterator.filespec(), "only");
    EXPECT_EQ(iterator.next(), 0);
    EXPECT_EQ(iterator.filespec(), "");
    EXPECT_EQ(iterator.next(), 0);
}

TEST(RX_FilespecIterator, IgnoresChangesAfterItsConstruction)
{
    const Scratch scratch;
    scratch.file("a");
    RX_FilespecIterator iterator(specOf(scratch.path("*")), 0);
    scratch.file("b");
    std::filesystem::remove(scratch.path("a"));
    EXPECT_EQ(iterator.next(), 1);
    EXPECT_EQ(iterator.filespec(), "a");
    EXPECT_EQ(iterator.next(), 0);
}

TEST(RX_FilespecIterator, MalformedPatternThrows)
{
    const Scratch scratch;
    try {
        const RX_FilespecIterator iterator(specOf(scratch.path("a[b")), 0);
        FAIL();
    } catch (const RX_ExError& failure) {
        EXPECT_EQ(failure.getCode(), 22);
        EXPECT_EQ(failure.asString(78), "Bad pattern: missing ], a[b");
    }
}

}
