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

/**
 * Calls a function that loads properties, and returns its result.
 * @param prefix put in front of the library's message
 * @throws Failure if the library rejects the properties; other exceptions propagate
 */
template <class Function>
auto translateLoadErrors(const std::string& prefix, Function load)
{
    try {
        return load();
    } catch (const std::runtime_error& exc) {
        throw Failure(prefix + exc.what());
    } catch (const std::invalid_argument& exc) {
        throw Failure(prefix + exc.what());
    }
}

/** Returns a Failure such as "cannot read NAME: No such file or directory", with the message of `errno`. */
Failure cannotRead(const std::string& name);

}

#endif
