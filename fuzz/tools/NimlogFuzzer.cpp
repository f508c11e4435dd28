// The reader of logs in nimlog. The first two bytes are the fields of the prefixes, the third one the number
// of bytes that are read in one step; the others are a log. The records must be its lines, in order.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <fuzz/support/Require.hpp>
#include <nimlog/FieldCondition.hpp>
#include <nimlog/RecordSplitter.hpp>
#include <nimlog/RotatedName.hpp>
#include <nimlog/Severities.hpp>
#include <nimlog/TextPattern.hpp>
#include <nimlog/TimeText.hpp>
#include <nimlog/Unescaper.hpp>

namespace {

using namespace nimlog;

/** Checks that the fields of records are parts of their prefixes. */
class Checker : public RecordSink
{
public:
    void consume(const Record& record) override
    {
        require(record.fields.length <= record.whole.size());
        require(record.hasPrefix || record.fields.present == 0);
        Fields fields = record.fields;
        const std::string_view prefix = record.whole.substr(0, fields.length);
        forEachView(fields, [prefix](std::string_view view) {
            require(view.data() >= prefix.data()
                    && view.data() + view.size() <= prefix.data() + prefix.size());
        });
        if (fields.hasSeverity()) {
            require(!severityNameOf(fields).empty());
        }
        const bool hasCondition = condition.holdsFor(record.text());
        require(hasCondition != negated.holdsFor(record.text()));
        require(string.occursIn(record.text()) == expression.occursIn(record.text()));
    }

private:
    const FieldCondition condition{"user=17"};
    const FieldCondition negated{"user!=17"};
    TextPattern string{"user", false, true};
    TextPattern expression{"use[r]", false, true};
};

/** Collects the text of records, and passes them on. */
class Collector : public RecordSink
{
public:
    explicit Collector(RecordSink& nextSink) : next(nextSink) {}

    void consume(const Record& record) override
    {
        hasPriorities = hasPriorities || record.fields.hasPriority;
        text += record.whole;
        next.consume(record);
    }

    RecordSink& next;
    std::string text;
    bool hasPriorities = false;
};

std::string withoutNewlines(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3) {
        return 0;
    }
    const unsigned int mask = (data[0] * 256U + data[1]) % 1024;
    const std::size_t step = data[2] + 1U;
    const std::string log(reinterpret_cast<const char*>(data) + 3, size - 3);

    Checker checker;
    Unescaper unescaper(checker);
    Collector collector(unescaper);
    Collector plain(checker);
    for (Collector* const sink : {&collector, &plain}) {
        RecordSplitter splitter(mask, *sink);
        for (std::string_view rest = log; !rest.empty();) {
            const std::size_t length = sink == &plain ? rest.size() : std::min(step, rest.size());
            std::memcpy(splitter.prepare(length), rest.data(), length);
            splitter.commit(length);
            rest.remove_prefix(length);
        }
        splitter.endFile();
        splitter.flush();
        if (!sink->hasPriorities) {
            require(withoutNewlines(sink->text) == withoutNewlines(log));
        }
    }
    require(collector.text == plain.text);

    DateTime time = {};
    const std::size_t length = readDateTime(log, time);
    require(length <= log.size());
    // The name of the day is not read.
    for (std::size_t part = 0; log[0] == '2' && part < length; ++part) {
        require(isCutDateTime(std::string_view(log).substr(0, part)));
    }
    RotatedName meaning = {};
    readRotatedName(log, meaning);
    return 0;
}
