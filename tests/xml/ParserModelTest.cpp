#include "ParserModel.hpp"
#include "ParserSubject.hpp"
#include "RandomDocument.hpp"

#include <dalnim/sys/SysError.hpp>
#include <dalnim/xml/Parser.hpp>

#include <support/LongRun.hpp>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using parsermodel::Action;
using parsermodel::Event;
using parsermodel::ParserModel;
using parsermodel::ParserSubject;
using parsermodel::RandomDocument;
using parsermodel::Script;
using parsermodel::Thrown;

constexpr int THROWN = -1;

template <class Parser>
int push(Parser& parser, const std::string& piece, int flags)
{
    try {
        return parser.parseBuffer(piece, flags);
    } catch (const Thrown&) {
        return THROWN;
    }
}

Script randomScript(RandomDocument& random)
{
    static const Action actions[] = {
        Action::Stop,      Action::Throw,     Action::Push,     Action::Push,  Action::Push,
        Action::PushTwice, Action::PushTwice, Action::PushNull, Action::Reset, Action::PushTwiceAndStop};
    Script script;
    if (random.oneIn(3)) {
        for (std::size_t count = 1 + random.below(3); count > 0; --count) {
            script[random.below(8)] = actions[random.below(sizeof actions / sizeof *actions)];
        }
    }
    return script;
}

/** How often each result and each message occurred. */
typedef std::map<std::string, int> Endings;

void note(Endings& endings, int result, const std::string& error)
{
    ++endings[std::to_string(result)];
    if (result == PDS_PARSE_E_SYNTAX) {
        ++endings[error.substr(0, error.find(" -- "))];
    }
}

/** Passes a random document, in random pieces and with random flags, to both, and compares their results. */
void compareOneDocument(RandomDocument& random, ParserModel& model, ParserSubject& subject, Endings& endings)
{
    const std::string text = random.make();
    const std::uintptr_t user_data = 1 + random.below(100);
    const Script script = randomScript(random);
    model.reset(user_data, script);
    subject.reset(user_data, script);

    const int flags = static_cast<int>(random.below(4)) * 2;
    const auto pieces = random.cut(text);
    const bool forget_end = random.oneIn(50);
    int expected = PDS_PARSE_OK;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const bool last = i + 1 == pieces.size() && !forget_end;
        const int piece_flags = flags | (last ? PDS_PARSE_F_LAST : 0);
        expected = push(model, pieces[i], piece_flags);
        ASSERT_EQ(push(subject, pieces[i], piece_flags), expected) << text;
    }
    ASSERT_EQ(subject.events(), model.events()) << text;
    ASSERT_TRUE(subject.hasError(model.error())) << text << "\nexpected: " << model.error();
    note(endings, expected, model.error());
    if (random.oneIn(10)) {
        const int again = push(model, "<a/>", PDS_PARSE_F_LAST);
        ASSERT_EQ(push(subject, "<a/>", PDS_PARSE_F_LAST), again) << text;
    }
}

TEST(ParserModel, RandomDocumentsProduceTheSameEventsAsTheModel)
{
    const int handles = support::isLongRun() ? 40000 : 2000;
    constexpr int DOCUMENTS = 50;
    RandomDocument random(9101);
    Endings endings;
    for (int i = 0; i < handles; ++i) {
        const bool common = random.oneIn(2);
        ParserModel model(common, 0);
        ParserSubject subject(common, 0);
        for (int j = 0; j < DOCUMENTS; ++j) {
            ASSERT_NO_FATAL_FAILURE(compareOneDocument(random, model, subject, endings))
                << "document " << i * DOCUMENTS + j;
        }
    }

    for (const char* ending : {"0",
                               "-1",
                               "700012002",
                               "700012006",
                               "Attribute name  starts with an invalid character",
                               "Attribute name doesn't terminate with an '='",
                               "Attribute value doesn't end with a quote",
                               "Attribute value doesn't start with a quote",
                               "CDATA segment not terminated",
                               "Comment not terminated",
                               "DOCTYPE tag is not properly terminated - reached End Of Document",
                               "Duplicate attribute name",
                               "Element name [End Tag] contains an invalid character",
                               "Element name [End Tag] starts with an invalid character",
                               "Element name [Start Tag] contains an invalid character",
                               "Element name [Start Tag] starts with an invalid character",
                               "Invalid data contained outside a top-level Element",
                               "Invalid processing instruction: '<?' without a matching '?>'",
                               "Mismatched End Tag",
                               "Multiple top-level Elements encountered",
                               "Premature end of data stream (not at top-level)",
                               "Unrecognized special symbol"}) {
        EXPECT_GE(endings[ending], handles / 50) << ending;
    }
}

/** Records the events of a Parser as those of the push parser's separate callbacks. */
class Recorder : public com::kor::dal::nim::xml::Consumer
{
public:
    bool elementBegin(const std::string& tag, const std::string& path,
                      const com::kor::dal::nim::xml::Attributes& attrs) override
    {
        Event event = make(PDS_PARSE_CB_TAG_START, tag, path);
        for (const com::kor::dal::nim::xml::Attribute& attribute : attrs) {
            event.attributes.emplace_back(attribute.name);
            event.attributes.emplace_back(attribute.value);
        }
        return record(std::move(event));
    }

    bool elementEnd(const std::string& tag, const std::string& path) override
    {
        return record(make(PDS_PARSE_CB_TAG_END, tag, path));
    }

    bool elementProcessData(const std::string& tag, const std::string& path, const std::string& data,
                            bool isCData) override
    {
        Event event = make(isCData ? PDS_PARSE_CB_CDATA : PDS_PARSE_CB_DATA, tag, path);
        event.data = data;
        return record(std::move(event));
    }

    std::vector<Event> events;
    Script script;

protected:
    ~Recorder() noexcept(false) override = default;

private:
    static Event make(int type, const std::string& tag, const std::string& path)
    {
        Event event;
        event.type = type;
        event.tag = tag;
        event.fullTag = path;
        return event;
    }

    bool record(Event event)
    {
        const auto scripted = script.find(events.size());
        events.push_back(std::move(event));
        if (scripted != script.end() && scripted->second == Action::Throw) {
            throw Thrown();
        }
        return scripted == script.end();
    }
};

/** Returns the arguments of an event that a consumer receives, too. */
Event asForConsumer(const Event& event)
{
    Event result;
    result.type = event.type;
    result.tag = event.tag;
    result.fullTag = event.fullTag;
    result.data = event.data;
    if (event.type == PDS_PARSE_CB_TAG_START) {
        result.attributes = event.attributes;
    } else if (event.type != PDS_PARSE_CB_TAG_END) {
        // The data callback has no tag; it is the end of the path.
        result.tag = event.fullTag.substr(event.fullTag.rfind('/') + 1);
    }
    return result;
}

TEST(ParserModel, ConsumerReceivesTheEventsOfTheModel)
{
    const int parsers = support::isLongRun() ? 20000 : 1000;
    constexpr int DOCUMENTS = 50;
    RandomDocument random(9102);
    int successes = 0;
    for (int i = 0; i < parsers; ++i) {
        com::kor::dal::nim::mem::RcoRef<Recorder> recorder(new Recorder);
        com::kor::dal::nim::xml::ConsumerRef consumer(recorder);
        com::kor::dal::nim::xml::Parser parser(consumer);
        for (int j = 0; j < DOCUMENTS; ++j) {
            std::string text = random.oneIn(4) ? random.good() : random.make();
            if (random.oneIn(4)) {
                // Deeper than the levels for which the parser has separate strings.
                for (std::size_t levels = 13 + random.below(6); levels > 0; --levels) {
                    const bool isOdd = levels % 2 != 0;
                    text.insert(0, isOdd ? "<b>" : "<ab>");
                    text += isOdd || random.oneIn(8) ? "</b>x" : "</ab>y";
                }
            }
            Script script;
            if (random.oneIn(4)) {
                script[random.below(12)] = random.oneIn(2) ? Action::Stop : Action::Throw;
            }
            ParserModel model(false, 0);
            model.reset(0, script);
            const int expected = push(model, text, PDS_PARSE_F_LAST | PDS_PARSE_F_SKIP_WS);
            std::vector<Event> events;
            for (const Event& event : model.events()) {
                events.push_back(asForConsumer(event));
            }

            recorder->events.clear();
            recorder->script = script;
            int result = PDS_PARSE_OK;
            try {
                parser.parse(text);
            } catch (const com::kor::dal::nim::sys::system_error& error) {
                result = error.error();
            } catch (const Thrown&) {
                result = THROWN;
            }
            ASSERT_EQ(result, expected) << text;
            ASSERT_EQ(recorder->events, events) << text;
            successes += result == PDS_PARSE_OK ? 1 : 0;
        }
    }
    EXPECT_GE(successes, parsers);
}

}
