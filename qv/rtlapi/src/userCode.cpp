#include <qv/rtlapi/src/userCode.hpp>

bool qv::isThreadEnding() noexcept
{
    // `catch (...)` also catches a forced unwinding, but that has no C++ exception to refer to.
    return !std::current_exception();
}
