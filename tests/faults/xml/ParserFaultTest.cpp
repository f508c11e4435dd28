#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/sys/SysError.hpp>
#include <dalnim/xml/AggregateConsumer.hpp>
#include <dalnim/xml/Parser.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace faults;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::xml::AggregateConsumer;
using com::kor::dal::nim::xml::AggregateConsumerRef;
using com::kor::dal::nim::xml::Attributes;
using com::kor::dal::nim::xml::Consumer;
using com::kor::dal::nim::xml::ConsumerRef;
using com::kor::dal::nim::xml::Parser;

/** Counts the events, without allocating memory. */
class Counter : public Consumer
{
public:
    bool elementBegin(const String&, const String&, const Attributes& attrs) override
    {
        ++begins;
        attributes += attrs.size();
        return true;
    }
    bool elementEnd(const String&, const String&) override
    {
        ++ends;
        return true;
    }
    bool elementProcessData(const String&, const String&, const String& data, bool) override
    {
        bytes += data.size();
        return true;
    }
    void setDocumentId(int docId) override
    {
        begins = ends = attributes = bytes = 0;
        Consumer::setDocumentId(docId);
    }

    std::size_t begins = 0;
    std::size_t ends = 0;
    std::size_t attributes = 0;
    std::size_t bytes = 0;

protected:
    ~Counter() noexcept(false) override = default;
};

typedef com::kor::dal::nim::mem::RcoRef<Counter> CounterRef;

const String& document()
{
    static const String text = [] {
        String document;
        for (int i = 0; i < 30; ++i) {
            document += "<element" + std::to_string(i) + ">";
        }
        document += "<a";
        for (int i = 0; i < 30; ++i) {
            document += " an_attribute_with_a_long_name_" + std::to_string(i) + "='" + String(40, 'v') + "'";
        }
        document += ">" + String(3000, 'x') + "</a>";
        for (int i = 30; i-- > 0;) {
            document += "</element" + std::to_string(i) + ">";
        }
        return document;
    }();
    return text;
}

struct Subject
{
    Subject() : counter(new Counter), consumer(counter), parser(new Parser(consumer)) {}

    /** Parses the document. The counts restart with each document. */
    void parse()
    {
        counter->setDocumentId(7);
        parser->parse(document(), 7);
    }
    void parseStream()
    {
        counter->setDocumentId(7);
        std::istringstream stream(document());
        parser->parse(stream, 7);
    }

    CounterRef counter;
    ConsumerRef consumer;
    std::unique_ptr<Parser> parser;
};
typedef std::unique_ptr<Subject> SubjectRef;

void expectParsed(SubjectRef& subject, bool done)
{
    if (done) {
        EXPECT_EQ(31u, subject->counter->begins);
        EXPECT_EQ(31u, subject->counter->ends);
        EXPECT_EQ(30u, subject->counter->attributes);
        EXPECT_EQ(3000u, subject->counter->bytes);
        EXPECT_EQ(7, subject->counter->getDocumentId());
    } else {
        EXPECT_LE(subject->counter->begins, 31u);
        EXPECT_GE(subject->counter->begins, subject->counter->ends);
    }
}

WalkOptions withCode()
{
    WalkOptions options;
    options.named = [](const std::exception& failure) {
        const auto* const error = dynamic_cast<const system_error*>(&failure);
        return error != nullptr && error->error() == 700012900
               && String(error->what()) == "Error to String function unimplemented";
    };
    return options;
}

TEST(ParserFault, DocumentIsParsedOrRunsOutOfMemory)
{
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](SubjectRef& subject) { subject->parse(); }, expectParsed, withCode()),
              40u);
}

TEST(ParserFault, StreamIsParsedOrRunsOutOfMemory)
{
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](SubjectRef& subject) { subject->parseStream(); }, expectParsed, withCode()),
              40u);
}

TEST(ParserFault, LaterDocumentIsParsedOrRunsOutOfMemory)
{
    walkAllocations(
        [] {
            auto subject = std::make_unique<Subject>();
            subject->parser->parse("<a b='1'>x</a>", 1);
            return subject;
        },
        [](SubjectRef& subject) { subject->parse(); }, expectParsed, withCode());
}

#if !defined DALNIM_SANITIZED

TEST(ParserFault, DocumentIsParsedOrFailsToAllocateABlock)
{
    WalkOptions options = withCode();
    options.call = Call::MALLOC;
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](SubjectRef& subject) { subject->parse(); }, expectParsed, options),
              2u);
}

#endif

TEST(ParserFault, ErrorOfTheDocumentIsReportedOrRunsOutOfMemory)
{
    const String wrong = "<a>" + String(100, ' ') + "</b>";
    WalkOptions options = withCode();
    EXPECT_GE(walkAllocations([] { return std::make_pair(Subject(), String()); },
                              [&](std::pair<Subject, String>& subject) {
                                  try {
                                      subject.first.parser->parse(wrong);
                                  } catch (const system_error& error) {
                                      if (error.error() != 700012003) {
                                          throw;
                                      }
                                      subject.second = error.what();
                                  }
                              },
                              [](std::pair<Subject, String>& subject, bool done) {
                                  EXPECT_EQ(done ? "Mismatched End Tag -- near offset 105: b" : "",
                                            subject.second);
                              },
                              options),
              3u);
}

TEST(ParserFault, RepeatedEventAllocatesNothing)
{
    const AggregateConsumerRef aggregate(new AggregateConsumer);
    const CounterRef first(new Counter);
    const CounterRef second(new Counter);
    AggregateConsumerRef members(aggregate);
    members->push_back(ConsumerRef(first));
    members->push_back(ConsumerRef(second));
    onNewThread([&] {
        const String name = "a";
        const Attributes none;
        const Fault fault(Call::NEW, ENOMEM);
        members->setDocumentId(3);
        members->elementBegin(name, name, none);
        members->elementProcessData(name, name, name, false);
        members->elementEnd(name, name);
        EXPECT_EQ(0u, fault.calls());
    });
    for (const CounterRef& member : {first, second}) {
        EXPECT_EQ(1u, member->begins);
        EXPECT_EQ(1u, member->ends);
        EXPECT_EQ(1u, member->bytes);
    }
}

}
