#ifndef DALNIM_TOOLS_SUPPORT_ERRORS_HPP
#define DALNIM_TOOLS_SUPPORT_ERRORS_HPP

#include <stdexcept>
#include <string>

namespace nimtools {

/** What ends a tool with the status 2: its text is the one line on standard error. */
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/** A mistake on the command line. */
class UsageError : public Failure
{
public:
    using Failure::Failure;
};

/** "cannot read NAME: No such file or directory", of the number in `errno`. */
Failure cannotRead(const std::string& name);

}

#endif
