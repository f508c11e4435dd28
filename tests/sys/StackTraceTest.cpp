#include <dalnim/sys/StackTrace.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <locale>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::sys::demangle;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;

static_assert(std::has_virtual_destructor_v<StackTrace>);
static_assert(std::is_copy_constructible_v<StackTrace>);
static_assert(std::is_copy_assignable_v<StackTrace>);
static_assert(std::is_same_v<const String&, decltype(std::declval<const StackTrace&>().toString())>);
static_assert(std::is_same_v<std::ostream&, decltype(std::declval<const StackTrace&>().displayFormatted(
                                                std::declval<std::ostream&>(), String(), true))>);

/** A stream buffer that counts the flushes. */
class Counter : public std::stringbuf
{
public:
    int flushes = 0;
    std::size_t lengthAtFlush = 0;

protected:
    int sync() override
    {
        ++flushes;
        lengthAtFlush = str().size();
        return 0;
    }
};

StackTrace threeDeep()
{
    const StackTrack outer("outer()", "Host", "app", 10);
    const StackTrack middle("middle()", "lib", 20);
    StackTrack inner("inner()", 30);
    inner.currentLine(33);
    return StackTrace();
}

TEST(StackTrace, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("StackTrace", StackTrace::CLASS_NAME);
}

TEST(StackTrace, TraceIsEmptyWithoutTracks)
{
    const StackTrace trace;
    EXPECT_TRUE(trace.empty());
    EXPECT_TRUE(trace.trace().empty());
    EXPECT_EQ("", trace.toString());
}

TEST(StackTrace, EmptyTraceWritesNothing)
{
    Counter counter;
    std::ostream os(&counter);
    os.setstate(std::ios::eofbit);
    const StackTrace trace;
    EXPECT_EQ(&os, &trace.displayFormatted(os, "indent", true));
    EXPECT_EQ(&os, &(os << trace));
    EXPECT_EQ("", counter.str());
    EXPECT_EQ(0, counter.flushes);
    EXPECT_EQ(std::ios::eofbit, os.rdstate());
}

TEST(StackTrace, InnermostFrameIsFirst)
{
    const StackTrace trace = threeDeep();
    EXPECT_FALSE(trace.empty());
    EXPECT_EQ((StringVector{"inner():30:33", "lib.middle():20", "app.Host.outer():10"}), trace.trace());
}

TEST(StackTrace, IsCapturedByTheConstructor)
{
    StackTrack track("f()", 1);
    const StackTrace before;
    track.currentLine(2);
    const StackTrace after;
    EXPECT_EQ(StringVector{"f():1"}, before.trace());
    EXPECT_EQ(StringVector{"f():1:2"}, after.trace());
}

TEST(StackTrace, NumbersCountDownToTheOutermostFrame)
{
    std::ostringstream os;
    EXPECT_EQ(&os, &threeDeep().displayFormatted(os, "> ", true));
    EXPECT_EQ("> [2]\tinner():30:33\n> [1]\tlib.middle():20\n> [0]\tapp.Host.outer():10\n", os.str());
}

StackTrace deep(int depth)
{
    const StackTrack track("deep()", 0);
    return depth == 1 ? StackTrace() : deep(depth - 1);
}

/** Groups digits singly, so that formatted numbers contain separators. */
class Grouping : public std::numpunct<char>
{
protected:
    std::string do_grouping() const override
    {
        return "\1";
    }
};

TEST(StackTrace, NumbersAreDecimalWhateverTheStreamsFormat)
{
    std::ostringstream os;
    os.imbue(std::locale(std::locale::classic(), new Grouping));
    os << std::hex << std::showbase;
    deep(12).displayFormatted(os, "", true);
    EXPECT_EQ("[11]\tdeep()\n[10]\tdeep()\n[9]\tdeep()\n", os.str().substr(0, 35));
}

TEST(StackTrace, ShowsOnlyIndentAndLabelWithoutNumbers)
{
    std::ostringstream os;
    threeDeep().displayFormatted(os, "\t", false);
    EXPECT_EQ("\tinner():30:33\n\tlib.middle():20\n\tapp.Host.outer():10\n", os.str());
}

TEST(StackTrace, FlushesOnceAfterTheLastLine)
{
    for (const bool numbered : {false, true}) {
        Counter counter;
        std::ostream os(&counter);
        threeDeep().displayFormatted(os, "", numbered);
        EXPECT_EQ(1, counter.flushes);
        EXPECT_EQ(counter.str().size(), counter.lengthAtFlush);
    }
}

TEST(StackTrace, InsertionWritesTwoSpacesAndNumbers)
{
    std::ostringstream os;
    os << threeDeep();
    EXPECT_EQ("  [2]\tinner():30:33\n  [1]\tlib.middle():20\n  [0]\tapp.Host.outer():10\n", os.str());
}

TEST(StackTrace, ToStringHasNoIndentAndNumbers)
{
    const StackTrace trace = threeDeep();
    const String& text = trace.toString();
    EXPECT_EQ("inner():30:33\nlib.middle():20\napp.Host.outer():10\n", text);
    EXPECT_EQ(&text, &trace.toString()) << "it is created once";
}

TEST(StackTrace, CopiesHoldTheSameLabels)
{
    const StackTrace trace = threeDeep();
    EXPECT_EQ("inner():30:33\nlib.middle():20\napp.Host.outer():10\n", trace.toString());
    const StackTrack here("here()", 0);
    const StackTrace copy(trace);
    EXPECT_EQ(trace.trace(), copy.trace());
    EXPECT_NE(&trace.toString(), &copy.toString());
    EXPECT_EQ("inner():30:33\nlib.middle():20\napp.Host.outer():10\n", copy.toString());
}

TEST(StackTrace, CopyFormatsItsStringAgain)
{
    StackTrace stale = threeDeep();
    stale.toString();
    const StackTrack here("here()", 0);
    stale = StackTrace();
    const StackTrace copy(stale);
    EXPECT_EQ("here()\n", copy.toString());
}

TEST(StackTrace, AssignmentKeepsTheCachedString)
{
    StackTrace target = threeDeep();
    target.toString();
    const StackTrack here("here()", 5);
    const StackTrace source;
    EXPECT_EQ(&target, &(target = source));
    EXPECT_EQ(StringVector{"here():5"}, target.trace());
    EXPECT_EQ("inner():30:33\nlib.middle():20\napp.Host.outer():10\n", target.toString());

    std::ostringstream os;
    target.displayFormatted(os, "", true);
    EXPECT_EQ("[0]\there():5\n", os.str()) << "the output is never cached";
}

TEST(StackTrace, AssignmentOfAnEmptyTraceKeepsTheCachedString)
{
    const StackTrace empty;
    StackTrace target = threeDeep();
    target.toString();
    target = empty;
    EXPECT_TRUE(target.empty());
    EXPECT_EQ("inner():30:33\nlib.middle():20\napp.Host.outer():10\n", target.toString());
}

TEST(StackTrace, AssignmentIsVisibleBeforeTheFirstToString)
{
    StackTrace target = threeDeep();
    const StackTrack here("here()", 5);
    const StackTrace source;
    source.toString();
    target = source;
    EXPECT_EQ("here():5\n", target.toString());
}

TEST(StackTrace, AssignmentToItselfKeepsTheLabels)
{
    StackTrace trace = threeDeep();
    const StackTrace& same = trace;
    trace = same;
    EXPECT_EQ(3U, trace.trace().size());
}

TEST(StackTrace, CanBeReadOnOtherThreads)
{
    std::unique_ptr<StackTrace> trace;
    std::thread([&trace] { trace = std::make_unique<StackTrace>(threeDeep()); }).join();
    EXPECT_EQ("inner():30:33\nlib.middle():20\napp.Host.outer():10\n", trace->toString());
}

TEST(Demangle, ReturnsTheDemangledName)
{
    int status = 99;
    EXPECT_EQ("com::kor::dal::nim::sys::StackTrace", demangle("N3com3kor3dal3nim3sys10StackTraceE", &status));
    EXPECT_EQ(0, status);
    EXPECT_EQ("f(int)", demangle("_Z1fi", nullptr));
    EXPECT_EQ("f(int)", demangle("_Z1fi"));
}

TEST(Demangle, ReturnsANameThatIsNotMangled)
{
    int status = 99;
    EXPECT_EQ("main", demangle("main", &status));
    EXPECT_EQ(-2, status);
    EXPECT_EQ("a name, with blanks", demangle("a name, with blanks"));
}

TEST(Demangle, ReturnsAnEmptyStringForNull)
{
    int status = 99;
    EXPECT_EQ("", demangle(nullptr, &status));
    EXPECT_EQ(-3, status);
    EXPECT_EQ("", demangle(nullptr));
    status = 99;
    EXPECT_EQ("", demangle("", &status));
    EXPECT_NE(99, status);
    EXPECT_NE(0, status);
}

}
