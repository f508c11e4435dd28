// Errors and traces are created after another failure: they must behave correctly if memory runs out, too.

#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <support/StandardLibrary.hpp>

namespace {

using namespace faults;
using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::demangle;
using com::kor::dal::nim::sys::sys_err_string;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::sys::internal::ThreadState;
using com::kor::dal::nim::sys::internal::throw_null_ref_exception;
using com::kor::dal::nim::type::Cloneable;

const char* const OUTER = "outer_function_with_a_name_that_needs_memory_of_its_own()";
const char* const INNER = "inner_function_with_a_name_that_needs_memory_of_its_own()";

const StringVector& labels()
{
    static const StringVector both = {String(INNER) + ":2", String(OUTER) + ":1"};
    return both;
}

TEST(ErrorsFault, ThreadStateIsConstructedOrThrows)
{
    EXPECT_GE(walkAllocations([] { return 0; }, [](int& tid) { tid = ThreadState::current().tid; },
                              [](int tid, bool done) { EXPECT_EQ(done, tid != 0); }),
              3u);
}

TEST(ErrorsFault, FailedTrackLeavesTheStackUnchanged)
{
    EXPECT_GE(walkAllocations(
                  [] { return StringVector(); },
                  [](StringVector& found) {
                      const StackTrack outer(OUTER, 1);
                      const StackTrack inner(INNER, 2);
                      // A copy first: the assignment of a vector may leave a part.
                      found = StringVector(StackTrace().trace());
                  },
                  [](StringVector& found, bool done) { EXPECT_EQ(done ? labels() : StringVector(), found); }),
              6u);
    EXPECT_TRUE(StackTrace().empty());
}

TEST(ErrorsFault, TraceIsCompleteOrThrows)
{
    const StackTrack outer(OUTER, 1);
    const StackTrack inner(INNER, 2);
    const StackTrace source;
    WalkOptions here;
    here.onThisThread = true;
    typedef std::unique_ptr<StackTrace> Trace;
    const auto expectWhole = [](Trace& trace, bool done) {
        ASSERT_EQ(done, trace != nullptr);
        if (done) {
            EXPECT_EQ(labels(), trace->trace());
        }
    };
    EXPECT_GE(walkAllocations([] { return Trace(); }, [](Trace& trace) { trace.reset(new StackTrace); },
                              expectWhole, here),
              4u);
    EXPECT_GE(walkAllocations([] { return Trace(); },
                              [&](Trace& trace) { trace.reset(new StackTrace(source)); }, expectWhole),
              4u);
}

TEST(ErrorsFault, AssignmentOfATraceSucceedsOrKeepsTheOldOne)
{
    std::unique_ptr<StackTrace> source;
    {
        const StackTrack outer(OUTER, 1);
        const StackTrack inner(INNER, 2);
        source.reset(new StackTrace);
    }
    EXPECT_GE(walkAllocations([] { return std::make_unique<StackTrace>(); },
                              [&](std::unique_ptr<StackTrace>& trace) { *trace = *source; },
                              [](std::unique_ptr<StackTrace>& trace, bool done) {
                                  EXPECT_EQ(done ? labels() : StringVector(), trace->trace());
                              }),
              3u);
}

TEST(ErrorsFault, TruncatedStringOfATraceIsNotCached)
{
    std::unique_ptr<StackTrace> source;
    {
        const StackTrack outer(OUTER, 1);
        const StackTrack inner(INNER, 2);
        source.reset(new StackTrace);
    }
    const String text = labels()[0] + "\n" + labels()[1] + "\n";
    EXPECT_GE(walkAllocations([&] { return std::make_unique<StackTrace>(*source); },
                              [](std::unique_ptr<StackTrace>& trace) { trace->toString(); },
                              [&](std::unique_ptr<StackTrace>& trace, bool done) {
                                  if (done) {
                                      EXPECT_EQ(text, trace->toString());
                                  }
                              }),
              2u);
}

TEST(ErrorsFault, ErrorIsCompleteOrThrows)
{
    typedef std::unique_ptr<system_error> Error;
    const String text(100, 't');
    const auto expectError = [](const String& what, int number) {
        return [what, number](Error& error, bool done) {
            ASSERT_EQ(done, error != nullptr);
            if (done) {
                EXPECT_EQ(what, error->what());
                EXPECT_EQ(number, error->error());
            }
        };
    };
    EXPECT_GE(walkAllocations([] { return Error(); },
                              [&](Error& error) { error.reset(new system_error(7, text)); },
                              expectError(text, 7)),
              2u);
    EXPECT_GE(walkAllocations([] { return Error(); },
                              [&](Error& error) { error.reset(new system_error(7, text.c_str())); },
                              expectError(text, 7)),
              2u);
    EXPECT_GE(walkAllocations([] { return Error(); }, [](Error& error) { error.reset(new system_error(11)); },
                              expectError("Resource temporarily unavailable", 11)),
              2u);
    EXPECT_GE(walkAllocations([] { return Error(); },
                              [](Error& error) {
                                  errno = 11;
                                  error.reset(new system_error);
                              },
                              expectError("Resource temporarily unavailable", 11)),
              2u);
}

TEST(ErrorsFault, CopyOfAnErrorIsCompleteOrThrows)
{
    const StackTrack outer(OUTER, 1);
    const StackTrack inner(INNER, 2);
    const system_error source(7, String(100, 't'));
    typedef std::unique_ptr<Cloneable> Copy;
    EXPECT_GE(walkAllocations([] { return Copy(); }, [&](Copy& copy) { copy.reset(source.clone(false)); },
                              [&](Copy& copy, bool done) {
                                  ASSERT_EQ(done, copy != nullptr);
                                  if (done) {
                                      const auto& error = dynamic_cast<const system_error&>(*copy);
                                      EXPECT_EQ(labels(), error.trace());
                                      EXPECT_EQ(7, error.error());
                                      EXPECT_STREQ(source.what(), error.what());
                                  }
                              }),
              4u);

    // raise() throws the error itself, or bad_alloc.
    EXPECT_GE(walkAllocations([] { return 0; },
                              [&](int& number) {
                                  try {
                                      source.raise();
                                  } catch (const system_error& error) {
                                      number = error.error();
                                  }
                              },
                              [](int number, bool done) { EXPECT_EQ(done ? 7 : 0, number); }),
              3u);
}

TEST(ErrorsFault, MessagesAreCompleteOrThrow)
{
    const String unknown = "Unknown error 1000000";
    EXPECT_GE(walkAllocations([] { return String(); },
                              [](String& text) { sys_err_string(1000000).swap(text); },
                              [&](String& text, bool done) { EXPECT_EQ(done ? unknown : String(), text); }),
              // A string of libc++ contains 22 characters without memory of its own.
              support::USES_LIBCXX ? 0u : 1u);
    EXPECT_GE(walkAllocations([] { return String(); },
                              [](String& text) { sys_err_string(EAGAIN).swap(text); },
                              [](String& text, bool done) {
                                  EXPECT_EQ(done ? "Resource temporarily unavailable" : "", text);
                              }),
              1u);
    const char* const mangled = "_ZN3com3kor3dal3nim3sys10StackTrace8toStringEv";
    EXPECT_GE(walkAllocations([] { return String(); }, [=](String& text) { demangle(mangled).swap(text); },
                              [](String& text, bool done) {
                                  EXPECT_EQ(done ? "com::kor::dal::nim::sys::StackTrace::toString()" : "",
                                            text);
                              }),
              1u);
}

#if !defined DALNIM_SANITIZED

TEST(ErrorsFault, NameThatCannotBeDemangledIsUnchanged)
{
    const char* const mangled = "_ZN3com3kor3dal3nim3sys10StackTrace8toStringEv";
    int status = 0;
    Fault fault(Call::MALLOC, ENOMEM);
    String text;
    EXPECT_EQ("", failureUnder(fault, [&] { demangle(mangled, &status).swap(text); }));
    EXPECT_EQ(mangled, text);
    EXPECT_EQ(-1, status);
}

#endif

TEST(ErrorsFault, NullReferenceIsReportedWithTheCompleteTrace)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "the streams of libc++ replace std::bad_alloc by a failure of their own";
    }
    const StackTrack outer(OUTER, 1);
    const StackTrack inner(INNER, 2);
    const String text = "message\n  [1]\t" + labels()[0] + "\n  [0]\t" + labels()[1] + "\n";
    WalkOptions here;
    here.onThisThread = true;
    EXPECT_GE(walkAllocations([] { return String(); },
                              [](String& found) {
                                  try {
                                      throw_null_ref_exception("message");
                                  } catch (const std::logic_error& error) {
                                      found = error.what();
                                  }
                              },
                              [&](String& found, bool done) { EXPECT_EQ(done ? text : String(), found); },
                              here),
              5u);
}

}
