#ifndef NIMHOST_SUMMARY_HPP
#define NIMHOST_SUMMARY_HPP

#include "Counters.hpp"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nimhost {

/** The state of the host as labels and numbers. */
struct Summary
{
    typedef std::pair<std::string, std::uint64_t> Row;

    Summary(double runSeconds, const Counters& counters, std::uint64_t rotations);

    double seconds;
    std::vector<Row> counts;
    /** Log files with their sizes in bytes, newest first; empty if the log is a stream. */
    std::vector<Row> files;
    /** Directory of the log files; empty if the log is a stream. */
    std::string directory;
};

}

#endif
