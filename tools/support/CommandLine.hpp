#ifndef DALNIM_TOOLS_SUPPORT_COMMANDLINE_HPP
#define DALNIM_TOOLS_SUPPORT_COMMANDLINE_HPP

#include <getopt.h>
#include <string>
#include <vector>

namespace nimtools {

/** An option of a tool. */
struct Option
{
    /** Long name, without "--". */
    const char* name;
    /** Result of next() for this option: its letter, or a number above 255 if it has none. */
    int id;
    bool hasValue;
};

/** The options and operands of a command line, in any order, as in getopt_long(3). */
class CommandLine
{
public:
    /** At most one per process, since getopt_long() stores its position in global variables. */
    CommandLine(int argc, char** argv, const std::vector<Option>& options);

    /**
     * Returns the id of the next option, or -1 after the last one.
     * @throws UsageError if the option is unknown, lacks its value or has an unexpected one
     */
    int next();
    /** Returns the value of the option that next() returned last. */
    const char* value() const;
    /** Returns the arguments that are not options. Requires that next() has returned -1. */
    std::vector<std::string> operands() const;

private:
    const int count;
    char** const words;
    std::vector<option> longOptions;
    std::string letters;
};

}

#endif
