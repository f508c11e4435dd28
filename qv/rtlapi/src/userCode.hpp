#ifndef QV_RTLAPI_SRC_USERCODE_HPP
#define QV_RTLAPI_SRC_USERCODE_HPP

#include <exception>
#include <utility>

/**
 * @file
 * Calls of user code, which may throw, and may also end the thread: pthread_exit and cancellation unwind the
 * stack like an exception (a forced unwinding). A handler that stops it ends the process, so it must go on.
 */

namespace qv {

/**
 * In a `catch (...)`: returns true if it has caught a forced unwinding. The handler must then clean up and
 * rethrow. Needs no type of a particular C++ library.
 */
bool isThreadEnding() noexcept;

/** An exception that has left user code. It stays alive, and can be used outside the handler. */
class CaughtException
{
public:
    /** Creates an object without an exception. */
    CaughtException() noexcept = default;
    /**
     * @param exception  the current exception
     * @param known      the same object, or null if it is no std::exception
     */
    CaughtException(std::exception_ptr exception, const std::exception* known) noexcept
        : _exception(std::move(exception)), _known(known)
    {
    }

    /** Returns true if there is an exception. */
    explicit operator bool() const noexcept
    {
        return _exception != nullptr;
    }
    /** Returns the exception, or null if there is none or if it is no std::exception. */
    const std::exception* known() const noexcept
    {
        return _known;
    }

private:
    std::exception_ptr _exception;
    const std::exception* _known = nullptr;
};

/**
 * Calls a function and returns the exception that it throws. Only a forced unwinding leaves this function.
 *
 * Exceptions are examined outside the handler, because a C++ runtime ends the process if a forced unwinding
 * meets a second handler within the first: copying or logging an exception may run user code as well.
 */
template <class Function>
CaughtException catchException(Function&& function)
{
    try {
        function();
    } catch (const std::exception& exception) {
        return CaughtException(std::current_exception(), &exception);
    } catch (...) {
        if (isThreadEnding()) {
            throw;
        }
        return CaughtException(std::current_exception(), nullptr);
    }
    return CaughtException();
}

}

#endif
