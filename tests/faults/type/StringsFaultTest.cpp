#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/sys/SysError.hpp>
#include <dalnim/type/CompositeString.hpp>
#include <dalnim/type/NumberOps.hpp>
#include <dalnim/type/RegExp.hpp>
#include <dalnim/type/StringOps.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include <support/StandardLibrary.hpp>

namespace {

using namespace faults;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::type::CompositeString;
using com::kor::dal::nim::type::NumberOps;
using com::kor::dal::nim::type::RegExp;
using com::kor::dal::nim::type::StringOps;

const String FIRST(60, 'a');
const String SECOND(70, 'b');
const String BOTH = FIRST + "+" + SECOND;

typedef std::unique_ptr<CompositeString> Composite;

Composite makeComposite()
{
    return std::make_unique<CompositeString>(BOTH);
}

TEST(StringsFault, CompositeIsConstructedOrThrows)
{
    const CompositeString source(BOTH, String(50, ':'));
    const auto expectBoth = [](Composite& composite, bool done) {
        ASSERT_EQ(done, composite != nullptr);
        if (done) {
            EXPECT_EQ(BOTH, composite->composite());
        }
    };
    EXPECT_GE(walkAllocations([] { return Composite(); },
                              [](Composite& made) { made.reset(new CompositeString(BOTH)); }, expectBoth),
              2u);
    for (const bool deep : {false, true}) {
        EXPECT_GE(walkAllocations([] { return Composite(); },
                                  [&](Composite& made) { made.reset(new CompositeString(source, deep)); },
                                  expectBoth),
                  3u);
    }
}

TEST(StringsFault, AssignmentOfACompositeSucceedsOrThrows)
{
    const CompositeString source(SECOND + ":" + FIRST, String(50, ':'));
    EXPECT_GE(walkAllocations([] { return makeComposite(); },
                              [&](Composite& composite) { *composite = source; },
                              [](Composite& composite, bool done) {
                                  EXPECT_EQ(done ? SECOND + ":" + FIRST : BOTH, composite->composite());
                                  EXPECT_EQ(2u, composite->components());
                              }),
              1u);
}

TEST(StringsFault, ComponentIsReturnedOrThrows)
{
    struct Subject
    {
        CompositeString composite{BOTH};
        String taken;
    };
    typedef std::unique_ptr<Subject> SubjectRef;
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](SubjectRef& subject) { subject->composite.next().swap(subject->taken); },
                              [](SubjectRef& subject, bool done) {
                                  EXPECT_EQ(done ? FIRST : String(), subject->taken);
                                  EXPECT_EQ(done ? SECOND : BOTH, subject->composite.composite());
                              }),
              1u);
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](SubjectRef& subject) { subject->composite.last().swap(subject->taken); },
                              [](SubjectRef& subject, bool done) {
                                  EXPECT_EQ(done ? SECOND : String(), subject->taken);
                                  EXPECT_EQ(done ? FIRST + "+" : BOTH, subject->composite.composite());
                              }),
              1u);
}

TEST(StringsFault, ComponentIsAppendedOrThrows)
{
    for (const String& text : {String(15, 'x'), BOTH, String()}) {
        const String component(1000, 'c');
        EXPECT_GE(walkAllocations([&] { return std::make_unique<CompositeString>(text); },
                                  [&](Composite& composite) { composite->append(component); },
                                  [&](Composite& composite, bool done) {
                                      const String whole = text.empty() ? component : text + "+" + component;
                                      EXPECT_EQ(done ? whole : text, composite->composite());
                                  }),
                  1u);
    }
}

TEST(StringsFault, ConversionsSucceedOrThrow)
{
    const auto walk = [](const String& from, const String& to, auto convert) {
        return walkAllocations([&] { return from; }, [&](String& text) { convert(text); },
                               [&](String& text, bool done) { EXPECT_EQ(done ? to : from, text); });
    };
    const String mixed = "aB" + String(100, '+');
    EXPECT_GE(walk(mixed, "ab" + String(100, '+'), [](String& text) { StringOps::toLower(text); }), 1u);
    EXPECT_GE(walk(mixed, "AB" + String(100, '+'), [](String& text) { StringOps::toUpper(text); }), 1u);
    EXPECT_GE(walk(mixed, "a" + String(200, 'n') + String(100, '+'),
                   [](String& text) {
                       if (text.size() == 102) {
                           StringOps::replace(text, String("B"), String(200, 'n'));
                       }
                   }),
              1u);
    const String padded = " \t" + FIRST + "\n";
    EXPECT_GE(walk(padded, FIRST, [](String& text) { StringOps::trimWS(text).swap(text); }), 1u);
}

TEST(StringsFault, ComparisonsAllocateNothing)
{
    onNewThread([] {
        const Fault fault(Call::NEW, ENOMEM);
        EXPECT_NE(0, StringOps::compareIgnoreCase(FIRST, SECOND));
        EXPECT_EQ(0u, fault.calls());
    });
}

TEST(StringsFault, NumberIsParsedOrThrows)
{
    // The sign selects the stream, which allocates memory.
    const String text = "+123456.25" + String(40, '0');
    EXPECT_GE(walkAllocations([] { return 0.0f; }, [&](float& number) { NumberOps::parse(number, text); },
                              [](float number, bool done) { EXPECT_EQ(done ? 123456.25f : 0.0f, number); }),
              // With libc++, no stream is used.
              support::USES_LIBCXX ? 0u : 1u);
    int value = 0;
    onNewThread([&] {
        const Fault fault(Call::NEW, ENOMEM);
        NumberOps::parse(value, String("17"));
        EXPECT_EQ(0u, fault.calls());
    });
    EXPECT_EQ(17, value);
}

TEST(StringsFault, InvalidNumberThrowsOrRunsOutOfMemory)
{
    EXPECT_GE(walkAllocations([] { return String(); },
                              [](String& found) {
                                  int value = 5;
                                  try {
                                      NumberOps::parse(value, "17x");
                                  } catch (const std::invalid_argument& failure) {
                                      found = value == 5 ? failure.what() : "changed";
                                  }
                              },
                              [](String& found, bool done) {
                                  EXPECT_EQ(done ? "Invalid string representation of numeric type." : "",
                                            found);
                              }),
              2u);
}

typedef std::unique_ptr<RegExp> Expression;

void expectMatching(Expression& expression, bool done)
{
    ASSERT_EQ(done, expression != nullptr);
    if (done) {
        EXPECT_TRUE(expression->matches("aaab"));
        EXPECT_FALSE(expression->matches("b"));
    }
}

TEST(StringsFault, ExpressionIsCompiledOrThrows)
{
    EXPECT_GE(walkAllocations([] { return Expression(); },
                              [](Expression& made) { made.reset(new RegExp("^(a+)b|[c-e]{2,5}$")); },
                              expectMatching),
              2u);
}

#if !defined DALNIM_SANITIZED

TEST(StringsFault, ExpressionThatRunsOutOfSystemMemoryThrows)
{
    WalkOptions options;
    options.call = Call::MALLOC;
    options.named = [](const std::exception& failure) {
        const auto* const error = dynamic_cast<const system_error*>(&failure);
        return error != nullptr;
    };
    EXPECT_GE(walkAllocations([] { return Expression(); },
                              [](Expression& made) { made.reset(new RegExp("^(a+)b|[c-e]{2,5}$")); },
                              expectMatching, options),
              5u);
}

TEST(StringsFault, MatchThatRunsOutOfSystemMemoryFails)
{
    const RegExp expression("^(a+)b|[c-e]{2,5}$");
    for (unsigned int n = 1; n < 20; ++n) {
        Fault fault(Call::MALLOC, ENOMEM, n);
        const bool matched = expression.matches("aaab");
        fault.disarm();
        EXPECT_TRUE(matched || fault.failed() != 0);
    }
    EXPECT_TRUE(expression.matches("aaab"));
}

#endif

}
