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
    "               [--service] [--status FILE] [--metrics FILE] [DOCUMENT...]\n"
    "\n"
    "Answers the requests in XML documents with plug-ins, and writes the results to standard output.\n"
    "If DOCUMENT is \"-\", reads standard input. Without documents, generates requests in sources, which\n"
    "a thread pool answers. Logs as configured, and prints a summary at the end.\n"
    "\n"
    "  --config FILE  read FILE instead of host.properties in the directory of the program\n"
    "  --threads N    number of sources, each with a thread of its own (default: 4, or 0 if there are\n"
    "                 documents)\n"
    "  --seconds S    stop after S seconds\n"
    "  --records N    stop after N requests of the sources\n"
    "  --service      set no limit: run the sources until a signal\n"
    "  --status FILE  write an HTML page about the run, once per second\n"
    "  --metrics FILE\n"
    "                 write numbers of the host, its log and its plug-ins every two seconds, for the\n"
    "                 textfile collector of Prometheus, which reads files that end in .prom\n"
    "  --help         print this help\n"
    "\n"
    "Sources without a limit run for five seconds. SIGHUP reloads the configuration. SIGINT and SIGTERM\n"
    "shut the host down: submitted requests are answered, all others are dropped, and have a result\n"
    "with that status. A second signal ends it immediately. Start, reloads, shutdown and progress are\n"
    "reported to the service manager, if NOTIFY_SOCKET is set. SIGUSR2 logs what all threads do. A crash\n"
    "leaves a report in the log and on standard error.\n"
    "\n"
    "Exit status: 0 if all is well; 1 if a document was rejected, one of its requests failed, anything\n"
    "was dropped, or the results, the summary, the last page or metrics could not be written; 2 if the\n"
    "command line or the configuration is invalid, even after SIGHUP, or the host cannot start.\n";

namespace {

constexpr unsigned int DEFAULT_SECONDS = 5;
constexpr unsigned int DEFAULT_THREADS = 4;
constexpr unsigned int MAX_THREADS = 1000;

template <class Number>
Number parseNumber(const char* option, const char* text, Number maximum)
{
    Number number = 0;
    const char* const end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, number);
    if (error != std::errc() || stop != end || text == end || number == 0 || number > maximum) {
        throw UsageError("--" + std::string(option) + " requires a number from 1 to "
                         + std::to_string(maximum) + ", not \"" + text + "\"");
    }
    return number;
}

std::string requireText(const char* option, const char* text)
{
    if (*text == '\0') {
        throw UsageError("option --" + std::string(option) + " requires a value");
    }
    return text;
}

}

Options Options::parse(int argc, char** argv)
{
    // Index in the table below + 1.
    enum { CONFIG = 1, THREADS, SECONDS, RECORDS, SERVICE, STATUS, METRICS, HELP };
    static const option long_options[] = {
        {"config", required_argument, nullptr, CONFIG},
        {"threads", required_argument, nullptr, THREADS},
        {"seconds", required_argument, nullptr, SECONDS},
        {"records", required_argument, nullptr, RECORDS},
        {"service", no_argument, nullptr, SERVICE},
        {"status", required_argument, nullptr, STATUS},
        {"metrics", required_argument, nullptr, METRICS},
        {"help", no_argument, nullptr, HELP},
        {nullptr, 0, nullptr, 0},
    };

    Options options;
    std::set<int> given;
    opterr = 0;
    int index = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): single-threaded
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
        case SERVICE:
            options.service = true;
            break;
        case STATUS:
            options.status = requireText("status", optarg);
            break;
        case METRICS:
            options.metrics = requireText("metrics", optarg);
            break;
        case HELP:
            options.help = true;
            break;
        case ':':
            throw UsageError(std::string("option ") + argv[optind - 1] + " requires a value");
        default:
            throw UsageError(std::string("unknown option ") + argv[optind - 1]);
        }
    }
    options.documents.assign(argv + optind, argv + argc);
    if (std::count(options.documents.begin(), options.documents.end(), "-") > 1) {
        throw UsageError("standard input, \"-\", is given twice");
    }
    if (options.service && (options.seconds != 0 || options.records != 0)) {
        throw UsageError("--service sets no limit: it excludes --seconds and --records");
    }
    if (!options.metrics.empty() && options.metrics == options.status) {
        throw UsageError("--status and --metrics require different files");
    }
    if (options.records != 0 && options.threads == 0 && !options.documents.empty()) {
        throw UsageError("--records limits the sources: with documents, it requires --threads");
    }
    if (options.documents.empty() && options.threads == 0) {
        options.threads = DEFAULT_THREADS;
    }
    if (options.config.empty()) {
        using com::kor::dal::nim::sys::System;
        options.config = System::getProcessPath(System::DIRECTORY_PATH_ONLY) + "/host.properties";
    }
    if (options.threads != 0 && options.seconds == 0 && options.records == 0 && !options.service) {
        options.seconds = DEFAULT_SECONDS;
    }
    return options;
}

}
