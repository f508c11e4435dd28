#include "Filter.hpp"
#include "LastRecords.hpp"
#include "Logs.hpp"
#include "Options.hpp"
#include "Resolver.hpp"
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
    Status report(const Logs& logs, std::uint64_t missingFields);
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
    Resolver resolver(*sink, [this](const std::string& message) { warn(message); });
    if (options.resolve && !isCounting) {
        sink = &resolver;
    }
    LastRecords last(options.last.value_or(0), *sink);
    Filter filter(options, options.last ? static_cast<RecordSink&>(last) : *sink);
    // The unescaper precedes the filter, so that module names are compared unescaped.
    Unescaper unescaper(filter);
    Logs logs(options, options.unescape ? static_cast<RecordSink&>(unescaper) : filter,
              [this](const std::string& message) { warn(message); });
    const auto idle = [&] {
        if (options.follow && logs.hasCaughtUp()) {
            last.release();
        }
        out.flush();
    };
    options.follow ? logs.follow(idle) : logs.readAll(idle);
    last.release();
    if (isCounting) {
        counts.write(out, options.json, isForTerminal);
    }
    return report(logs, filter.missingFields() + (isCounting ? counts.missingFields() : 0));
}

/** Warns about records without the expected fields. */
Status NimLog::report(const Logs& logs, std::uint64_t missingFields)
{
    const std::string advice = "; name them with --mask or --config";
    Status status = nimtools::STATUS_OK;
    bool isDamaged = false;
    std::string paths;
    for (const auto& log : logs.all()) {
        isDamaged = isDamaged || log->reader.hasDamagedFile();
        paths += (paths.empty() ? "" : ", ") + log->path;
        if (log->splitter.leading() == 0) {
            continue;
        }
        if (log->splitter.recognised() == 0) {
            warn(log->path + ": no line starts with the expected fields" + advice);
            status = nimtools::STATUS_FOUND;
        } else {
            warn(log->reader.leadingFile()
                 + ": lines before the first record that do not start with the expected fields: "
                 + std::to_string(log->splitter.leading()) + advice);
        }
    }
    if (missingFields != 0 && status == nimtools::STATUS_OK) {
        warn(paths + ": records left out because they lack a field that was filtered or counted by: "
             + std::to_string(missingFields));
    }
    return isDamaged ? nimtools::STATUS_FAILED : status;
}

}

}

int main(int argc, char** argv)
{
    return nimlog::NimLog().run(argc, argv);
}
