#ifndef DALNIM_TOOLS_SUPPORT_PROGRAM_HPP
#define DALNIM_TOOLS_SUPPORT_PROGRAM_HPP

#include "Output.hpp"

#include <string>

namespace nimtools {

/** The statuses that a tool ends with. */
enum Status {
    STATUS_FINE = 0,
    /** There are findings or differences, or what was asked for is not there. */
    STATUS_FOUND = 1,
    /** A bad command line, or a file that cannot be read. */
    STATUS_FAILED = 2
};

/** The frame of a tool: what all of them do alike. */
class Program
{
public:
    virtual ~Program();

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /** Does the work, and turns what is thrown into a line on standard error and STATUS_FAILED. */
    int run(int argc, char** argv);

protected:
    Program(const char* toolName, const char* usageText);

    /** The work; what it puts into `out` is written when it returns. */
    virtual Status work(int argc, char** argv) = 0;

    /** Answers the options that every tool has. */
    void showUsage();
    void showVersion();
    /** A line on standard error, behind what has been put out by then. */
    void complain(const std::string& text);

    Output out;

private:
    void printError(const std::string& text) const;

    const char* const name;
    const char* const usage;
};

}

#endif
