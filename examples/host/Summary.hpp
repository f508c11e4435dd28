#ifndef NIMHOST_SUMMARY_HPP
#define NIMHOST_SUMMARY_HPP

#include "Counters.hpp"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nimhost {

/** What the host has done until now, in words and numbers, for whoever shows it. */
struct Summary
{
    typedef std::pair<std::string, std::uint64_t> Row;

    Summary(double runSeconds, const Counters& counters, std::uint64_t rotations);

    double seconds;
    std::vector<Row> counts;
    /** The files of the log with their bytes, newest first; empty when the log is a stream. */
    std::vector<Row> files;
    /** Where they stand; empty when the log is a stream. */
    std::string folder;
};

}

#endif
