#include "Plot.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <utility>

namespace nimhost {

namespace {

// In units of the drawing. It is as wide as the page.
constexpr double WIDTH = 760;
constexpr double HEIGHT = 180;
constexpr double LEFT = 76;
constexpr double RIGHT = 28;
constexpr double TOP = 26;
constexpr double BOTTOM = 26;

constexpr double INNER_WIDTH = WIDTH - LEFT - RIGHT;
constexpr double INNER_HEIGHT = HEIGHT - TOP - BOTTOM;

double across(double seconds, double all)
{
    return LEFT + seconds / all * INNER_WIDTH;
}

double above(double value, double top)
{
    return HEIGHT - BOTTOM - value / top * INNER_HEIGHT;
}

/** Formats a coordinate with a precision of a tenth of a unit. */
std::string formatted(double units)
{
    char text[32];
    static_cast<void>(std::snprintf(text, sizeof text, "%.1f", units));
    return text;
}

/** Returns 1, 2 or 5 times a power of ten, such that about `steps` of them make the range. */
double roundStep(double range, int steps)
{
    const double raw = range / steps;
    const double power = std::pow(10, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (raw <= factor * power) {
            return factor * power;
        }
    }
    return 10 * power;
}

/** Returns the distance of grid lines for counts, which is a whole number. */
double countStep(double top)
{
    return std::max(roundStep(std::max(top, 1.0), 4), 1.0);
}

}

std::string grouped(std::uint64_t number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3;) {
        at -= 3;
        digits.insert(at, ",");
    }
    return digits;
}

std::string grouped(double number)
{
    if (number < 10 && number != std::round(number)) {
        return formatted(number);
    }
    return grouped(static_cast<std::uint64_t>(std::llround(number)));
}

Plot::Plot(std::string plotTitle, std::string plotUnit)
    : title(std::move(plotTitle)), unit(std::move(plotUnit))
{
}

void Plot::add(double untilSeconds, double value)
{
    parts.push_back({untilSeconds, value});
}

double Plot::highest() const
{
    double most = 0;
    for (const Part& part : parts) {
        most = std::max(most, part.value);
    }
    return most;
}

void Plot::write(std::ostream& os) const
{
    const double most = highest();
    const double step = countStep(most);
    const double top = std::max(std::ceil(most / step), 1.0) * step;
    const double seconds = parts.empty() ? 1 : std::max(parts.back().until, 0.001);

    os << "<svg viewBox=\"0 0 " << WIDTH << ' ' << HEIGHT << "\" role=\"img\" aria-label=\"" << title
       << ", at most " << grouped(most) << ' ' << unit << "\">\n"
       << "<text class=\"title\" x=\"" << LEFT << "\" y=\"16\">" << title << "</text>\n";
    writeGrid(os, top, seconds);
    writeCurve(os, top, seconds);
    writeHints(os, seconds);
    os << "</svg>\n";
}

void Plot::writeGrid(std::ostream& os, double top, double seconds) const
{
    const double step = countStep(top);
    for (int line = 0; line * step <= top * 1.001; ++line) {
        const std::string y = formatted(above(line * step, top));
        os << "<path class=\"grid\" d=\"M" << LEFT << ' ' << y << "H" << WIDTH - RIGHT
           << "\"/><text class=\"y\" x=\"" << LEFT - 8 << "\" y=\"" << y << "\">" << grouped(line * step)
           << "</text>\n";
    }
    // Labels have at most one decimal.
    const double tick = std::max(roundStep(seconds, 8), 0.1);
    for (int line = 0; line * tick <= seconds; ++line) {
        os << "<text class=\"x\" x=\"" << formatted(across(line * tick, seconds)) << "\" y=\"" << HEIGHT - 8
           << "\">" << grouped(line * tick) << " s</text>\n";
    }
}

void Plot::writeCurve(std::ostream& os, double top, double seconds) const
{
    std::string path = "M" + formatted(LEFT) + ' ' + formatted(above(0, top));
    for (const Part& part : parts) {
        path += "V" + formatted(above(part.value, top)) + "H" + formatted(across(part.until, seconds));
    }
    os << "<path class=\"curve\" d=\"" << path << "V" << formatted(above(0, top)) << "Z\"/>\n";
}

/** Writes a tooltip for each part. */
void Plot::writeHints(std::ostream& os, double seconds) const
{
    os << "<g class=\"hints\">\n";
    double from = 0;
    for (const Part& part : parts) {
        const double x = across(from, seconds);
        os << "<rect x=\"" << formatted(x) << "\" y=\"" << TOP << "\" width=\""
           << formatted(across(part.until, seconds) - x) << "\" height=\"" << INNER_HEIGHT << "\"><title>"
           << formatted(from) << " to " << formatted(part.until) << " s: " << grouped(part.value) << ' '
           << unit << "</title></rect>\n";
        from = part.until;
    }
    os << "</g>\n";
}

}
