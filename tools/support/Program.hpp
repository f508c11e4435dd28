#ifndef DALNIM_TOOLS_SUPPORT_PROGRAM_HPP
#define DALNIM_TOOLS_SUPPORT_PROGRAM_HPP

#include "Output.hpp"

#include <string>

namespace nimtools {

/** Exit statuses of the tools. */
enum Status {
    STATUS_OK = 0,
    /** There are findings or differences, or the requested item does not exist. */
    STATUS_FOUND = 1,
    /** The command line is invalid, or a file cannot be read. */
    STATUS_FAILED = 2
};

/** The base class of the tools. */
class Program
{
public:
    virtual ~Program();

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /** Calls work() and returns its status. Exceptions become a line on standard error and STATUS_FAILED. */
    int run(int argc, char** argv);

protected:
    Program(const char* toolName, const char* usageText);

    /** Runs the tool. Output in `out` is flushed after it returns. */
    virtual Status work(int argc, char** argv) = 0;

    /** Implements the option --help. */
    void showUsage();
    /** Implements the option --version. */
    void showVersion();
    /** Flushes the output, then prints a line on standard error. */
    void warn(const std::string& text);

    Output out;

private:
    void printError(const std::string& text) const;

    const char* const name;
    const char* const usage;
};

}

#endif
