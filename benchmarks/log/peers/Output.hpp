#ifndef BENCHMARKS_LOG_PEERS_OUTPUT_HPP
#define BENCHMARKS_LOG_PEERS_OUTPUT_HPP

#include <cstddef>
#include <string>

#include <unistd.h>

/** A statement stands in its function: that of a wrapper around it must cost no call. */
#define REFUSED_IN_PLACE [[gnu::always_inline]]

/** What a logger's lines begin with. */
enum class Prefix {
    /** Date and time with the zone, host, process, its id, thread, module, severity, file and line. */
    FULL,
    /** "WARNING : ", so that a record can be as short as 20 bytes. */
    SEVERITY
};

/** How a logger that is measured is to write: to a fresh file, each line in the kernel at its end. */
struct Output
{
    std::string path;
    Prefix prefix = Prefix::FULL;
    /** Bytes after which the file is rotated, with three old ones kept; 0 for never. */
    std::size_t maxFileSize = 0;
};

constexpr unsigned int OLD_FILES = 3;

/** What a peer that knows no field for it has as a constant text in its pattern. */
inline const std::string& hostName()
{
    static const std::string name = [] {
        char text[256] = "";
        gethostname(text, sizeof text - 1);
        return std::string(text);
    }();
    return name;
}

constexpr char PROCESS_NAME[] = "log_bench";
constexpr char MODULE_NAME[] = "bench.records";
constexpr char SOURCE_FILE[] = "log/Records";

/** The argument of a refused statement: costs more than all else, if it is ever evaluated. */
inline std::string expensiveText()
{
    return std::string(10000, 'x');
}

#endif
