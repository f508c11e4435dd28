#ifndef NIMHOST_FAILURE_HPP
#define NIMHOST_FAILURE_HPP

#include <exception>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>

namespace nimhost {

/**
 * Rethrows the exception that unwinds a cancelled or exiting thread, which must not be stopped. That also
 * happens if it meets a second handler within the first one. Must be called from a handler.
 */
void continueThreadEnd();

/**
 * Returns a line that describes the exception being handled: its message, or the name of its type if it has
 * none. Calls continueThreadEnd(). Must be called from a handler.
 */
std::string currentFailure();

/**
 * Writes a line to standard error: "nimhost: " and the parts of a text. The line is written in one piece,
 * since the log and other threads may write there at the same time; if memory runs out, piece by piece.
 */
void writeError(std::initializer_list<std::string_view> parts) noexcept;

/**
 * Calls a function with the exception being handled. An exception that is not derived from `std::exception`
 * is passed as a `std::runtime_error` with the message of currentFailure(). Must be called from a handler.
 */
template <class Function>
void withCurrentException(Function function)
{
    continueThreadEnd();
    try {
        throw;
    } catch (const std::exception& exc) {
        function(exc);
    } catch (...) {
        function(std::runtime_error(currentFailure()));
    }
}

}

#endif
