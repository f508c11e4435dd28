#ifndef BENCHMARKS_LOG_PEERS_OUTPUT_HPP
#define BENCHMARKS_LOG_PEERS_OUTPUT_HPP

#include <cstddef>
#include <string>

#include <unistd.h>

/** Inlines the wrapper of a statement, so that the call is not measured. */
#define ALWAYS_INLINE [[gnu::always_inline]]

/** The prefix of lines. */
enum class Prefix {
    /** Date, time, zone, host, process name and ID, thread ID, module, severity, source file and line. */
    FULL,
    /** "WARNING : ", so that a record can be as short as 20 bytes. */
    SEVERITY
};

/** The configuration of a measured logger, which writes each line with a system call, to a new file. */
struct Output
{
    std::string path;
    Prefix prefix = Prefix::FULL;
    /** Size in bytes at which the file is rotated, with OLD_FILES rotated files kept; 0 for no rotation. */
    std::size_t maxFileSize = 0;
};

constexpr unsigned int OLD_FILES = 3;

/** Returns the host name; a constant in the pattern of peers that have no field for it. */
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

/** The operand of a disabled statement: dominates the cost if it is evaluated. */
inline std::string expensiveText()
{
    return std::string(10000, 'x');
}

#endif
