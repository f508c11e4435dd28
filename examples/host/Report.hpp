#ifndef NIMHOST_REPORT_HPP
#define NIMHOST_REPORT_HPP

#include "Summary.hpp"

#include <cstdint>
#include <iosfwd>

namespace nimhost {

/** Overwrites the progress line on a terminal. */
void showProgress(std::ostream& os, double seconds, const Counters& counters, std::uint64_t rotations);
/** Clears the progress line. */
void clearProgress(std::ostream& os);

/** Prints the summary at the end of the run, with the sizes of the log files. */
void showTable(std::ostream& os, const Summary& summary);

}

#endif
