#ifndef NIMHOST_OPTIONS_HPP
#define NIMHOST_OPTIONS_HPP

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace nimhost {

/** A mistake of whoever started the host: one line for standard error. */
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/** The command line. */
struct Options
{
    /** The configuration; the one beside the program unless told. */
    std::string config;
    /** How many sources there are; 4 unless told, or none beside documents. */
    unsigned int threads = 0;
    /** How long to run; 0 for no limit. */
    unsigned int seconds = 0;
    /** How many requests the sources read together, each of which makes a record; 0 for no limit. */
    std::uint64_t records = 0;
    /** Where the page of the run is written; empty for none. */
    std::string status;
    /** Documents of requests, "-" for standard input. */
    std::vector<std::string> documents;
    bool help = false;

    /**
     * Throws UsageError. With sources and neither limit told, the host runs for five seconds; with
     * documents alone, until they are served.
     */
    static Options parse(int argc, char** argv);
};

extern const char USAGE[];

}

#endif
