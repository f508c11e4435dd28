#include "Options.hpp"

#include <dalnim/sys/System.hpp>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <getopt.h>
#include <set>

namespace nimhost {

const char USAGE[] =
    "usage: nimhost [--config FILE] [--threads N] [--seconds S] [--records N]\n"
    "               [--status FILE] [DOCUMENT...]\n"
    "\n"
    "Serves the requests of XML documents by plug-ins, and writes the results to standard output; \"-\"\n"
    "is standard input. Without documents it runs sources whose requests a pool answers. Either way it\n"
    "logs as the configuration describes, and ends with a table.\n"
    "\n"
    "  --config FILE  read FILE instead of host.properties beside the program\n"
    "  --threads N    how many sources, each on a thread of its own (default 4, or 0\n"
    "                 beside documents)\n"
    "  --seconds S    stop after S seconds\n"
    "  --records N    stop after N requests\n"
    "  --status FILE  show the run on a page of HTML, which is written once a second\n"
    "  --help         show this text\n"
    "\n"
    "Sources with neither limit run for five seconds. SIGHUP makes it read its configuration again.\n"
    "SIGINT and SIGTERM end it in order: requests that were submitted are answered, all others are\n"
    "dropped, which their results say. A second one ends it immediately.\n"
    "\n"
    "Exit status: 0; 1 if a document was refused, or a request of one failed, if anything was dropped,\n"
    "or if the results, the table or the last page could not be written; 2 for a bad option or\n"
    "configuration, also of a SIGHUP, and for a start that failed.\n";

namespace {

constexpr unsigned int DEFAULT_SECONDS = 5;
constexpr unsigned int DEFAULT_THREADS = 4;
constexpr unsigned int MAX_THREADS = 1000;

template <class Number>
Number parseNumber(const char* option, const char* text, Number most)
{
    Number number = 0;
    const char* const end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, number);
    if (error != std::errc() || stop != end || text == end || number == 0 || number > most) {
        throw UsageError("--" + std::string(option) + " takes a number from 1 to " + std::to_string(most)
                         + ", not \"" + text + "\"");
    }
    return number;
}

std::string requireText(const char* option, const char* text)
{
    if (*text == '\0') {
        throw UsageError("option --" + std::string(option) + " needs a value");
    }
    return text;
}

}

Options Options::parse(int argc, char** argv)
{
    // Each is one more than its index in the table.
    enum { CONFIG = 1, THREADS, SECONDS, RECORDS, STATUS, HELP };
    static const option long_options[] = {
        {"config", required_argument, nullptr, CONFIG},
        {"threads", required_argument, nullptr, THREADS},
        {"seconds", required_argument, nullptr, SECONDS},
        {"records", required_argument, nullptr, RECORDS},
        {"status", required_argument, nullptr, STATUS},
        {"help", no_argument, nullptr, HELP},
        {nullptr, 0, nullptr, 0},
    };

    Options options;
    std::set<int> given;
    opterr = 0;
    int index = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    for (int found; (found = getopt_long(argc, argv, ":", long_options, &index)) != -1;) {
        if (found != ':' && found != '?' && !given.insert(found).second) {
            throw UsageError(std::string("option --") + long_options[found - 1].name + " is given twice");
        }
        switch (found) {
        case CONFIG:
            options.config = requireText("config", optarg);
            break;
        case THREADS:
            options.threads = parseNumber("threads", optarg, MAX_THREADS);
            break;
        case SECONDS:
            options.seconds = parseNumber("seconds", optarg, 1000000000U);
            break;
        case RECORDS:
            options.records = parseNumber("records", optarg, std::uint64_t(1000000000000));
            break;
        case STATUS:
            options.status = requireText("status", optarg);
            break;
        case HELP:
            options.help = true;
            break;
        case ':':
            throw UsageError(std::string("option ") + argv[optind - 1] + " needs a value");
        default:
            throw UsageError(std::string("unknown option ") + argv[optind - 1]);
        }
    }
    options.documents.assign(argv + optind, argv + argc);
    if (std::count(options.documents.begin(), options.documents.end(), "-") > 1) {
        throw UsageError("standard input, \"-\", is given twice");
    }
    if (options.records != 0 && options.threads == 0 && !options.documents.empty()) {
        throw UsageError("--records limits sources: beside documents it needs --threads");
    }
    if (options.documents.empty() && options.threads == 0) {
        options.threads = DEFAULT_THREADS;
    }
    if (options.config.empty()) {
        using com::kor::dal::nim::sys::System;
        options.config = System::getProcessPath(System::DIRECTORY_PATH_ONLY) + "/host.properties";
    }
    if (options.threads != 0 && options.seconds == 0 && options.records == 0) {
        options.seconds = DEFAULT_SECONDS;
    }
    return options;
}

}
