#ifndef NIMHOST_PLOT_HPP
#define NIMHOST_PLOT_HPP

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace nimhost {

/** What is counted over the time of a run, drawn as SVG that needs nothing but itself. */
class Plot
{
public:
    /** @param unit behind the number that a pointer on the plot is shown */
    Plot(std::string title, std::string unit);

    /** How it stood from the end of the part before (the first one begins at 0) to this time. */
    void add(double untilSeconds, double value);

    void write(std::ostream& os) const;

private:
    struct Part
    {
        double until;
        double value;
    };

    double highest() const;
    void writeGrid(std::ostream& os, double top, double seconds) const;
    void writeCurve(std::ostream& os, double top, double seconds) const;
    void writeHints(std::ostream& os, double seconds) const;

    const std::string title;
    const std::string unit;
    std::vector<Part> parts;
};

/** With the digits in groups of three, and a decimal where the number is small: "1,234", "0.5". Not below 0.
 */
std::string grouped(double number);
std::string grouped(std::uint64_t number);

}

#endif
