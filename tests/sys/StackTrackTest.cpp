#include <dalnim/sys/StackTrack.hpp>

#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/mem/nsdefs.hpp>
#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::StackTrackState;
using com::kor::dal::nim::sys::internal::ThreadState;
namespace mem = com::kor::dal::nim::mem;

static_assert(!std::is_copy_constructible_v<StackTrack>);
static_assert(!std::is_move_constructible_v<StackTrack>);
static_assert(!std::is_copy_assignable_v<StackTrack>);
static_assert(!std::is_default_constructible_v<StackTrack>);
static_assert(!std::has_virtual_destructor_v<StackTrack>);
static_assert(std::is_nothrow_destructible_v<StackTrack>);
static_assert(std::is_same_v<StackTrackState, std::vector<const StackTrack*>>);

const StackTrackState& where()
{
    return ThreadState::current().where;
}

TEST(StackTrack, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("StackTrack", StackTrack::CLASS_NAME);
}

TEST(StackTrack, LabelsAFunctionOfAClass)
{
    const StackTrack track("refBias()", mem::RefCntObject::CLASS_NAME, mem::NAMESPACE_NAME, 209);
    EXPECT_EQ("com.kor.dal.nim.mem.RefCntObject.refBias():209", track.label());
}

TEST(StackTrack, LabelContainsTheGivenScopes)
{
    EXPECT_EQ("ns.C.f():7", StackTrack("f()", "C", "ns", 7).label());
    EXPECT_EQ("C.f():7", StackTrack("f()", "C", nullptr, 7).label());
    EXPECT_EQ("ns.f():7", StackTrack("f()", nullptr, "ns", 7).label());
    EXPECT_EQ("f():7", StackTrack("f()", nullptr, nullptr, 7).label());
    EXPECT_EQ("ns.f():7", StackTrack("f()", "ns", 7).label());
    EXPECT_EQ("f():7", StackTrack("f()", nullptr, 7).label());
    EXPECT_EQ("f():7", StackTrack("f()", 7).label());
    EXPECT_EQ("..:7", StackTrack("", "", "", 7).label());
}

TEST(StackTrack, LabelWithoutALineHasNoColon)
{
    EXPECT_EQ("ns.C.f()", StackTrack("f()", "C", "ns", 0).label());
    EXPECT_EQ("ns.f()", StackTrack("f()", "ns", 0).label());
    EXPECT_EQ("f()", StackTrack("f()", 0).label());
}

TEST(StackTrack, LabelContainsTheCurrentLine)
{
    StackTrack track("refBias()", "RefCntObject", "com.kor.dal.nim.mem", 209);
    track.currentLine(220);
    EXPECT_EQ("com.kor.dal.nim.mem.RefCntObject.refBias():209:220", track.label());
    track.currentLine(231);
    EXPECT_EQ("com.kor.dal.nim.mem.RefCntObject.refBias():209:231", track.label());
    track.currentLine(0);
    EXPECT_EQ("com.kor.dal.nim.mem.RefCntObject.refBias():209", track.label());
}

TEST(StackTrack, LabelMarksAMissingFirstLine)
{
    StackTrack track("refBias()", 0);
    track.currentLine(220);
    EXPECT_EQ("refBias():-:220", track.label());
}

TEST(StackTrack, LabelContainsAnyLine)
{
    StackTrack track("f()", 4294967295U);
    track.currentLine(4294967295U);
    EXPECT_EQ("f():4294967295:4294967295", track.label());
}

TEST(StackTrack, TracksAreOnTheStackOfTheirThread)
{
    ASSERT_TRUE(where().empty());
    {
        const StackTrack outer("outer()", 1);
        ASSERT_EQ(1U, where().size());
        {
            const StackTrack inner("inner()", 2);
            ASSERT_EQ(2U, where().size());
            EXPECT_EQ(&outer, where()[0]);
            EXPECT_EQ(&inner, where()[1]);
        }
        ASSERT_EQ(1U, where().size());
        EXPECT_EQ(&outer, where()[0]);
    }
    EXPECT_TRUE(where().empty());
}

void fail()
{
    const StackTrack track("fail()", 0);
    throw std::runtime_error("failed");
}

TEST(StackTrack, ExceptionRemovesTheTracksThatItLeaves)
{
    const StackTrack outer("outer()", 0);
    EXPECT_THROW(fail(), std::runtime_error);
    ASSERT_EQ(1U, where().size());
    EXPECT_EQ(&outer, where()[0]);
}

void descend(int depth)
{
    const StackTrack track("descend()", static_cast<unsigned int>(depth));
    if (depth > 1) {
        descend(depth - 1);
        return;
    }
    const StringVector labels = StackTrace().trace();
    ASSERT_EQ(5000U, labels.size());
    EXPECT_EQ("descend():1", labels.front());
    EXPECT_EQ("descend():2500", labels[2499]);
    EXPECT_EQ("descend():5000", labels.back());
}

TEST(StackTrack, NestsDeeply)
{
    descend(5000);
    EXPECT_TRUE(where().empty());
}

TEST(StackTrack, DoesNotAffectOtherThreads)
{
    const StackTrack mine("mine()", 0);
    StringVector others;
    std::thread([&others] {
        const StackTrack other("other()", 0);
        others = StackTrace().trace();
    }).join();
    EXPECT_EQ(StringVector{"other()"}, others);
    EXPECT_EQ(StringVector{"mine()"}, StackTrace().trace());
}

TEST(StackTrack, ThreadsHaveTheirOwnTracks)
{
    std::vector<std::thread> threads;
    std::vector<int> good(8, 0);
    for (std::size_t t = 0; t < 8; ++t) {
        threads.emplace_back([t, &good] {
            for (unsigned int i = 1; i <= 2000; ++i) {
                const StackTrack outer("outer()", static_cast<unsigned int>(t) + 1);
                const StackTrack inner("inner()", i);
                const StringVector labels = StackTrace().trace();
                if (labels
                    == StringVector{"inner():" + std::to_string(i), "outer():" + std::to_string(t + 1)}) {
                    ++good[t];
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::vector<int>(8, 2000), good);
}

}
