#include "Options.hpp"

#include "PrefixParser.hpp"
#include "TimeText.hpp"

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Control.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/type/StringOps.hpp>
#include <support/CommandLine.hpp>
#include <support/Errors.hpp>
#include <support/Includes.hpp>
#include <support/Input.hpp>

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace nimlog {

namespace log = com::kor::dal::nim::log;
using nimtools::UsageError;

const char USAGE[] =
    "usage: nimlog [OPTION]... FILE\n"
    "\n"
    "Reads a log and its old files FILE.0, FILE.1 and so on as one, the oldest records first; \"-\" is\n"
    "standard input.\n"
    "\n"
    "  -f, --follow         go on with what is written, also when the log is rotated, until SIGINT\n"
    "  -s, --severity MIN   records of that severity and above\n"
    "  -m, --module GLOB    records of modules that match, such as 'com.kor.*'; may be repeated\n"
    "  -t, --thread ID      records of that thread; may be repeated\n"
    "      --since TIME     records of that time and later\n"
    "      --until TIME     records of that time and earlier\n"
    "      --count BY       how many there are by severity, module, thread or hour\n"
    "      --json           a line of JSON for each record\n"
    "      --unescape       undo the escapes of a log that escapes control characters\n"
    "      --color WHEN     severities in colour: auto (on a terminal), always or never\n"
    "      --mask MASK      the fields of the prefix, until the log tells: such as\n"
    "                       DATETIME,MODULENAME,SEVERITY or 0x85 (default ALL)\n"
    "      --config FILE    the same, from the properties file that configures the log\n"
    "  -h, --help           show this text\n"
    "  -V, --version        show the version\n"
    "\n"
    "A TIME is 2026-11-14, 2026-11-14T15:05:20 or 15:05, each in UTC or with a zone such as +01:00\n"
    "behind seconds; @SECONDS since 1970; or a time ago such as 90s, 10m, 2h or 7d.\n"
    "\n"
    "Exit status: 0; 1 when no record has a prefix of these fields; 2 for a bad command line or a file\n"
    "that cannot be read.\n";

namespace {

int severityOf(const std::string& name)
{
    std::string upper = name;
    com::kor::dal::nim::type::StringOps::toUpper(upper);
    try {
        return log::getSeverityId(upper);
    } catch (const std::out_of_range&) {
        throw UsageError("\"" + name
                         + "\" is no severity: TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR or FATAL");
    }
}

std::string threadOf(const std::string& id)
{
    if (id.empty() || id.find_first_not_of("0123456789") != std::string::npos) {
        throw UsageError("\"" + id + "\" is no thread's number");
    }
    return id;
}

CountBy countByOf(const std::string& name)
{
    if (name == "severity") {
        return CountBy::SEVERITY;
    }
    if (name == "module") {
        return CountBy::MODULE;
    }
    if (name == "thread") {
        return CountBy::THREAD;
    }
    if (name == "hour") {
        return CountBy::HOUR;
    }
    throw UsageError("--count takes severity, module, thread or hour, not \"" + name + "\"");
}

/** What the properties file of a server sets; ALL if that is nothing. */
unsigned int maskOfConfiguration(const std::string& path)
{
    namespace io = com::kor::dal::nim::io;
    const std::string key = std::string(log::NAMESPACE_NAME) + '.' + log::Control::CLASS_NAME + '.'
                            + log::Control::TAG_OUTPUT_MASK;
    const std::string text = nimtools::readAll(path);
    nimtools::includedFiles(path, text);
    std::istringstream stream(text);
    std::ostringstream unused;
    try {
        const io::Properties properties(stream, path, unused, unused, io::Properties::SEV_ERROR);
        const std::string& mask = properties.getProperty(key);
        return mask.empty() ? static_cast<unsigned int>(log::Mask_ALL) : parseMask(mask);
    } catch (const std::runtime_error& exc) {
        throw nimtools::Failure(path + ": " + exc.what());
    } catch (const std::invalid_argument& exc) {
        throw nimtools::Failure(path + ": " + exc.what());
    }
}

/** The value of a variable, empty for none. */
std::string environment(const char* variable)
{
    const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): there is one thread
    return value != nullptr ? value : "";
}

bool colorOf(const std::string& when)
{
    if (when == "always" || when == "never") {
        return when == "always";
    }
    if (when != "auto") {
        throw UsageError("--color takes auto, always or never, not \"" + when + "\"");
    }
    return isatty(STDOUT_FILENO) == 1 && environment("NO_COLOR").empty() && !environment("TERM").empty()
           && environment("TERM") != "dumb";
}

}

Options Options::parse(int argc, char** argv)
{
    enum { SINCE = 256, UNTIL, COUNT, JSON, UNESCAPE, COLOR, MASK, CONFIG };
    nimtools::CommandLine line(argc, argv,
                               {{"follow", 'f', false},
                                {"severity", 's', true},
                                {"module", 'm', true},
                                {"thread", 't', true},
                                {"since", SINCE, true},
                                {"until", UNTIL, true},
                                {"count", COUNT, true},
                                {"json", JSON, false},
                                {"unescape", UNESCAPE, false},
                                {"color", COLOR, true},
                                {"mask", MASK, true},
                                {"config", CONFIG, true},
                                {"help", 'h', false},
                                {"version", 'V', false}});
    const std::time_t now = std::time(nullptr);
    Options options;
    options.mask = log::Mask_ALL;
    options.color = colorOf("auto");
    for (int option; (option = line.next()) != -1;) {
        switch (option) {
        case 'f':
            options.follow = true;
            break;
        case 's':
            options.severity = severityOf(line.value());
            break;
        case 'm':
            options.modules.emplace_back(line.value());
            break;
        case 't':
            options.threads.push_back(threadOf(line.value()));
            break;
        case SINCE:
            options.since = parseTime(line.value(), now);
            break;
        case UNTIL:
            options.until = parseTime(line.value(), now);
            break;
        case COUNT:
            options.countBy = countByOf(line.value());
            break;
        case JSON:
            options.json = true;
            break;
        case UNESCAPE:
            options.unescape = true;
            break;
        case COLOR:
            options.color = colorOf(line.value());
            break;
        case MASK:
            options.mask = parseMask(line.value());
            break;
        case CONFIG:
            options.mask = maskOfConfiguration(line.value());
            break;
        case 'h':
            options.help = true;
            return options;
        default:
            options.version = true;
            return options;
        }
    }
    const std::vector<std::string> operands = line.operands();
    if (operands.size() != 1) {
        throw UsageError(operands.empty() ? "a FILE is needed"
                                          : "one FILE is all; old files are found by its name");
    }
    options.path = operands[0];
    if (options.follow && options.path == nimtools::STANDARD_INPUT) {
        throw UsageError("--follow needs a file: standard input is read to its end as it comes");
    }
    return options;
}

}
