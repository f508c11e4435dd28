#include <qv/rtlapi/src/userCode.hpp>

bool qv::isThreadEnding() noexcept
{
    // A handler for everything catches a forced unwinding too, but there is no C++ exception to refer to.
    return !std::current_exception();
}
