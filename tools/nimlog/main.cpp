#include "Filter.hpp"
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
                  std::uint64_t lacking);
};

Status NimLog::work(int argc, char** argv)
{
    const Options options = Options::parse(argc, argv);
    if (options.help || options.version) {
        options.help ? showUsage() : showVersion();
        return nimtools::STATUS_FINE;
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
    Filter filter(options, *sink);
    // In front of the filter, which so compares the names as the program has them.
    Unescaper unescaper(filter);
    RecordSplitter splitter(options.mask, options.unescape ? static_cast<RecordSink&>(unescaper) : filter);
    Reader reader(options.path, splitter, [this](const std::string& complaint) { complain(complaint); });
    const auto idle = [this] { out.flush(); };
    options.follow ? reader.follow(idle) : reader.readAll(idle);
    if (isCounting) {
        counts.write(out, options.json, isForTerminal);
    }
    return report(options, splitter, reader, filter.lacking() + (isCounting ? counts.lacking() : 0));
}

/** Tells what the records did not have. */
Status NimLog::report(const Options& options, const RecordSplitter& splitter, const Reader& reader,
                      std::uint64_t lacking)
{
    const std::string advice = "; --mask or --config tells which they have";
    if (splitter.recognised() == 0 && splitter.leading() != 0) {
        complain(options.path + ": no line begins with the fields that a record is to have" + advice);
        return nimtools::STATUS_FOUND;
    }
    if (splitter.leading() != 0) {
        complain(reader.leadingFile() + ": lines ahead of the first record with other fields than expected: "
                 + std::to_string(splitter.leading()) + advice);
    }
    if (lacking != 0) {
        complain(options.path + ": records left out because they have not the fields that were asked for: "
                 + std::to_string(lacking));
    }
    return nimtools::STATUS_FINE;
}

}

}

int main(int argc, char** argv)
{
    return nimlog::NimLog().run(argc, argv);
}
