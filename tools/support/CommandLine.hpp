#ifndef DALNIM_TOOLS_SUPPORT_COMMANDLINE_HPP
#define DALNIM_TOOLS_SUPPORT_COMMANDLINE_HPP

#include <getopt.h>
#include <string>
#include <vector>

namespace nimtools {

/** An option of a tool, long and perhaps with a letter of its own. */
struct Option
{
    const char* name;
    /** What next() returns for it: its letter, or a number above 255 for one without. */
    int id;
    bool hasValue;
};

/** The options and operands of a command line, in any order, as getopt_long(3) understands them. */
class CommandLine
{
public:
    /** One for a process: getopt_long keeps its place in variables of its own. */
    CommandLine(int argc, char** argv, const std::vector<Option>& options);

    /** The id of the next option, or -1 behind the last one. Throws UsageError for a bad one. */
    int next();
    /** The value of the option that next() returned last. */
    const char* value() const;
    /** What is no option; when next() has returned -1. */
    std::vector<std::string> operands() const;

private:
    const int count;
    char** const words;
    std::vector<option> longOptions;
    std::string letters;
};

}

#endif
