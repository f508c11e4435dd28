#ifndef NIMHOST_REPORT_HPP
#define NIMHOST_REPORT_HPP

#include "Summary.hpp"

#include <cstdint>
#include <iosfwd>

namespace nimhost {

/** Overwrites the line of progress on a terminal. */
void showProgress(std::ostream& os, double seconds, const Counters& counters, std::uint64_t rotations);
/** Takes that line away. */
void clearProgress(std::ostream& os);

/** The table at the end of the run, with the log's files and their sizes. */
void showTable(std::ostream& os, const Summary& summary);

}

#endif
