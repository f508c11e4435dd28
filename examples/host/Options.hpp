#ifndef NIMHOST_OPTIONS_HPP
#define NIMHOST_OPTIONS_HPP

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace nimhost {

/** An invalid command line. The message is one line. */
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/** The command line. */
struct Options
{
    /** Path of the configuration; by default host.properties in the directory of the program. */
    std::string config;
    /** Number of sources; by default 4, or 0 if there are documents. */
    unsigned int threads = 0;
    /** Duration of the run in seconds; 0 means no limit. */
    unsigned int seconds = 0;
    /** Total number of requests of the sources, each of which is logged; 0 means no limit. */
    std::uint64_t records = 0;
    /** Whether the sources have no limit, and run until a signal ends them. */
    bool service = false;
    /** Path of the status page; empty for none. */
    std::string status;
    /** Path of the metrics; empty for none. */
    std::string metrics;
    /** Paths of documents; "-" means standard input. */
    std::vector<std::string> documents;
    bool help = false;

    /**
     * Parses the command line. If there are sources, no limit is given, and the host is not run as a service,
     * the run lasts five seconds.
     * @throws UsageError if it is invalid
     */
    static Options parse(int argc, char** argv);
};

extern const char USAGE[];

}

#endif
