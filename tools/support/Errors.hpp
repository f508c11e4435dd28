#ifndef DALNIM_TOOLS_SUPPORT_ERRORS_HPP
#define DALNIM_TOOLS_SUPPORT_ERRORS_HPP

#include <stdexcept>
#include <string>

namespace nimtools {

/** An error that ends a tool with status 2. Its message is printed as one line on standard error. */
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/** An invalid command line. */
class UsageError : public Failure
{
public:
    using Failure::Failure;
};

/** Returns a Failure such as "cannot read NAME: No such file or directory", with the message of `errno`. */
Failure cannotRead(const std::string& name);

}

#endif
