#include "Options.hpp"

#include "PrefixParser.hpp"
#include "RotatedName.hpp"
#include "TimeText.hpp"

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Control.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/type/StringOps.hpp>
#include <support/CommandLine.hpp>
#include <support/Errors.hpp>
#include <support/Includes.hpp>
#include <support/Input.hpp>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace nimlog {

namespace log = com::kor::dal::nim::log;
using nimtools::UsageError;

const char USAGE[] =
    "usage: nimlog [OPTION]... FILE...\n"
    "\n"
    "Reads the log FILE and its rotated files FILE.0, FILE.1, ... as one log, oldest records first, also "
    "those\n"
    "that logrotate has named, such as FILE-20261114, or compressed, such as FILE.2.gz and FILE.2.xz.\n"
    "If FILE is \"-\", reads standard input. The records of several logs are sorted by time.\n"
    "\n"
    "  -f, --follow         wait for new records, also across rotations, until SIGINT\n"
    "  -s, --severity MIN   print records of severity MIN or higher\n"
    "  -m, --module GLOB    print records of matching modules, such as 'com.kor.*'; may be repeated\n"
    "  -t, --thread ID      print records of the thread; may be repeated\n"
    "      --since TIME     print records of TIME or later\n"
    "      --until TIME     print records of TIME or earlier\n"
    "  -w, --where FIELD    print records with the field NAME=VALUE in their text, or, as NAME!=VALUE, "
    "without it;\n"
    "                       may be repeated: all must hold\n"
    "  -g, --grep REGEX     print records whose text matches an extended regular expression; may be "
    "repeated\n"
    "  -F, --fixed-strings  search for plain strings, not for regular expressions\n"
    "  -i, --ignore-case    ignore the case of ASCII letters in the search\n"
    "  -n, --last N         print only the last N of these records, and with --follow all later ones\n"
    "      --count BY       print the number of records by severity, module, source, thread or hour\n"
    "      --json           print each record as one line of JSON\n"
    "      --unescape       undo the escapes of a log that escapes control characters\n"
    "      --resolve        append functions and lines to the backtraces of reports of crashes\n"
    "      --color WHEN     colour severities: auto (on a terminal), always or never\n"
    "      --mask MASK      fields of records before the first stream header, for example\n"
    "                       DATETIME,MODULENAME,SEVERITY or 0x85 (default: ALL)\n"
    "      --config FILE    read the mask from the properties file that configures the log\n"
    "  -h, --help           print this help\n"
    "  -V, --version        print the version\n"
    "\n"
    "TIME is 2026-11-14, 2026-11-14T15:05:20 or 15:05, in UTC unless a zone such as +01:00 follows the\n"
    "seconds; @SECONDS since 1970; or a time ago, such as 90s, 10m, 2h or 7d.\n"
    "\n"
    "Exit status: 0 if all is well; 1 if no line starts with the expected fields; 2 if the command line is\n"
    "invalid or a file cannot be read.\n";

namespace {

int severityOf(const std::string& name)
{
    std::string upper = name;
    com::kor::dal::nim::type::StringOps::toUpper(upper);
    // The short names of other log systems.
    if (upper == "WARN") {
        return log::Severity_WARNING;
    }
    if (upper == "ERR") {
        return log::Severity_ERROR;
    }
    try {
        return log::getSeverityId(upper);
    } catch (const std::out_of_range&) {
        throw UsageError("\"" + name
                         + "\" is not a severity: use TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR or FATAL");
    }
}

std::string threadOf(const std::string& id)
{
    if (id.empty() || id.find_first_not_of("0123456789") != std::string::npos) {
        throw UsageError("\"" + id + "\" is not a thread ID");
    }
    return id;
}

std::size_t numberOf(const std::string& text)
{
    std::size_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        throw UsageError("--last requires a number of records, not \"" + text + "\"");
    }
    return number;
}

CountBy countByOf(const std::string& name)
{
    if (name == "severity") {
        return CountBy::SEVERITY;
    }
    if (name == "module") {
        return CountBy::MODULE;
    }
    if (name == "source") {
        return CountBy::SOURCE;
    }
    if (name == "thread") {
        return CountBy::THREAD;
    }
    if (name == "hour") {
        return CountBy::HOUR;
    }
    throw UsageError("--count requires severity, module, source, thread or hour, not \"" + name + "\"");
}

/** Returns the mask set in a server's properties file, or ALL if the file sets none. */
unsigned int maskOfConfiguration(const std::string& path)
{
    namespace io = com::kor::dal::nim::io;
    const std::string key = std::string(log::NAMESPACE_NAME) + '.' + log::Control::CLASS_NAME + '.'
                            + log::Control::TAG_OUTPUT_MASK;
    const std::string text = nimtools::readAll(path);
    nimtools::includedFiles(path, text);
    std::istringstream stream(text);
    std::ostringstream unused;
    return nimtools::translateLoadErrors(path + ": ", [&] {
        const io::Properties properties(stream, path, unused, unused, io::Properties::SEV_ERROR);
        const std::string& mask = properties.getProperty(key);
        return mask.empty() ? static_cast<unsigned int>(log::Mask_ALL) : parseMask(mask);
    });
}

/**
 * Returns the logs among paths. Rotated files of other logs are read with these; they are named by a pattern
 * of the shell such as "server.log*".
 */
std::vector<std::string> withoutRotatedFiles(const std::vector<std::string>& paths)
{
    std::vector<std::string> logs;
    for (const std::string& path : paths) {
        const bool isKnown = std::find(logs.begin(), logs.end(), path) != logs.end();
        const bool isRotated = std::any_of(paths.begin(), paths.end(), [&path](const std::string& other) {
            return isRotatedFileOf(path, other);
        });
        if (!isKnown && !isRotated) {
            logs.push_back(path);
        }
    }
    return logs;
}

/** Returns the value of an environment variable, or an empty string. */
std::string environment(const char* variable)
{
    const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): single-threaded
    return value != nullptr ? value : "";
}

bool colorOf(const std::string& when)
{
    if (when == "always" || when == "never") {
        return when == "always";
    }
    if (when != "auto") {
        throw UsageError("--color requires auto, always or never, not \"" + when + "\"");
    }
    return isatty(STDOUT_FILENO) == 1 && environment("NO_COLOR").empty() && !environment("TERM").empty()
           && environment("TERM") != "dumb";
}

}

Options Options::parse(int argc, char** argv)
{
    enum { SINCE = 256, UNTIL, COUNT, JSON, UNESCAPE, RESOLVE, COLOR, MASK, CONFIG };
    nimtools::CommandLine line(
        argc, argv,
        {{"follow", 'f', false},      {"severity", 's', true},       {"module", 'm', true},
         {"thread", 't', true},       {"since", SINCE, true},        {"until", UNTIL, true},
         {"where", 'w', true},        {"grep", 'g', true},           {"fixed-strings", 'F', false},
         {"ignore-case", 'i', false}, {"last", 'n', true},           {"count", COUNT, true},
         {"json", JSON, false},       {"unescape", UNESCAPE, false}, {"resolve", RESOLVE, false},
         {"color", COLOR, true},      {"mask", MASK, true},          {"config", CONFIG, true},
         {"help", 'h', false},        {"version", 'V', false}});
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
            options.since = parseTime(line.value(), now).first;
            break;
        case UNTIL:
            options.until = parseTime(line.value(), now).last;
            break;
        case 'w':
            options.conditions.emplace_back(line.value());
            break;
        case 'g':
            options.texts.emplace_back(line.value());
            break;
        case 'F':
            options.fixedStrings = true;
            break;
        case 'i':
            options.ignoreCase = true;
            break;
        case 'n':
            options.last = numberOf(line.value());
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
        case RESOLVE:
            options.resolve = true;
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
    options.paths = withoutRotatedFiles(line.operands());
    if (options.paths.empty()) {
        throw UsageError("expected a FILE");
    }
    for (const std::string& path : options.paths) {
        if (options.follow && path == nimtools::STANDARD_INPUT) {
            throw UsageError("--follow requires a file: standard input is always read until it ends");
        }
        if (options.follow && compressionOf(path) != nullptr) {
            throw UsageError("--follow requires a log: " + path + " is a compressed file");
        }
    }
    return options;
}

}
