#include "Filter.hpp"
#include "LastRecords.hpp"
#include "Options.hpp"
#include "Reader.hpp"
#include "Sinks.hpp"
#include "Unescaper.hpp"

#include <support/Program.hpp>

#include <unistd.h>

namespace nimlog {

namespace {

using nimtools::Status;

class NimLog : public nimtools::Program
{
public:
    NimLog() : Program("nimlog", USAGE) {}

protected:
    Status work(int argc, char** argv) override;

private:
    Status report(const Options& options, const RecordSplitter& splitter, const Reader& reader,
                  std::uint64_t missingFields);
};

Status NimLog::work(int argc, char** argv)
{
    const Options options = Options::parse(argc, argv);
    if (options.help || options.version) {
        options.help ? showUsage() : showVersion();
        return nimtools::STATUS_OK;
    }

    const bool isForTerminal = isatty(STDOUT_FILENO) == 1;
    TextSink text(out, options.color, isForTerminal);
    JsonSink json(out);
    CountSink counts(options.countBy);
    const bool isCounting = options.countBy != CountBy::NOTHING;
    RecordSink* sink = &text;
    if (isCounting) {
        sink = &counts;
    } else if (options.json) {
        sink = &json;
    }
    LastRecords last(options.last.value_or(0), *sink);
    Filter filter(options, options.last ? static_cast<RecordSink&>(last) : *sink);
    // The unescaper precedes the filter, so that module names are compared unescaped.
    Unescaper unescaper(filter);
    RecordSplitter splitter(options.mask, options.unescape ? static_cast<RecordSink&>(unescaper) : filter);
    Reader reader(options.path, splitter, [this](const std::string& message) { warn(message); });
    bool wasIdle = false;
    const auto idle = [&] {
        // At the first call, lines of the last record may be missing, but not at the second one.
        if (options.follow && (wasIdle || !splitter.hasPending())) {
            last.release();
        }
        wasIdle = true;
        out.flush();
    };
    options.follow ? reader.follow(idle) : reader.readAll(idle);
    last.release();
    if (isCounting) {
        counts.write(out, options.json, isForTerminal);
    }
    const Status status = report(options, splitter, reader,
                                 filter.missingFields() + (isCounting ? counts.missingFields() : 0));
    return reader.hasDamagedFile() ? nimtools::STATUS_FAILED : status;
}

/** Warns about records without the expected fields. */
Status NimLog::report(const Options& options, const RecordSplitter& splitter, const Reader& reader,
                      std::uint64_t missingFields)
{
    const std::string advice = "; name them with --mask or --config";
    if (splitter.recognised() == 0 && splitter.leading() != 0) {
        warn(options.path + ": no line starts with the expected fields" + advice);
        return nimtools::STATUS_FOUND;
    }
    if (splitter.leading() != 0) {
        warn(reader.leadingFile()
             + ": lines before the first record that do not start with the expected fields: "
             + std::to_string(splitter.leading()) + advice);
    }
    if (missingFields != 0) {
        warn(options.path + ": records left out because they lack a field that was filtered or counted by: "
             + std::to_string(missingFields));
    }
    return nimtools::STATUS_OK;
}

}

}

int main(int argc, char** argv)
{
    return nimlog::NimLog().run(argc, argv);
}
