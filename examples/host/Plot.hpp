#ifndef NIMHOST_PLOT_HPP
#define NIMHOST_PLOT_HPP

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace nimhost {

/** A plot of values over the time of a run, as self-contained SVG. */
class Plot
{
public:
    /** @param unit unit of the values, shown in tooltips */
    Plot(std::string title, std::string unit);

    /** Adds a value for the time from the end of the previous part (initially 0) to `untilSeconds`. */
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

/**
 * Formats a number >= 0 with digits in groups of three, and with one decimal if it is small: "1,234", "0.5".
 */
std::string grouped(double number);
std::string grouped(std::uint64_t number);

}

#endif
