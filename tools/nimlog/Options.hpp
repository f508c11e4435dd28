#ifndef DALNIM_TOOLS_NIMLOG_OPTIONS_HPP
#define DALNIM_TOOLS_NIMLOG_OPTIONS_HPP

#include "Fields.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace nimlog {

/** The field that records are counted by. */
enum class CountBy { NOTHING, SEVERITY, MODULE, SOURCE, THREAD, HOUR };

/** The command line. */
struct Options
{
    /** Logs, each without its rotated files. */
    std::vector<std::string> paths;
    /** Fields of records before the first stream header, as bits of log::Mask. */
    unsigned int mask;
    int severity = 0;
    std::vector<std::string> modules;
    std::vector<std::string> threads;
    std::optional<Instant> since;
    std::optional<Instant> until;
    /** Conditions on the fields in the text, all of which must hold. */
    std::vector<std::string> conditions;
    /** Texts to search for, of which a record must contain one. */
    std::vector<std::string> texts;
    bool fixedStrings = false;
    bool ignoreCase = false;
    /** Number of records to print, counted from the end. */
    std::optional<std::size_t> last;
    CountBy countBy = CountBy::NOTHING;
    bool follow = false;
    bool json = false;
    bool color = false;
    bool unescape = false;
    bool resolve = false;
    bool help = false;
    bool version = false;

    /** @throws UsageError if the command line is invalid */
    static Options parse(int argc, char** argv);
};

extern const char USAGE[];

}

#endif
