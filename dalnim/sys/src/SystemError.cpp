#include <dalnim/dalbase.hpp>

#include <dalnim/sys/SysError.hpp>

#include <qv/pmx/errors.h>

#include <cerrno>

namespace com::kor::dal::nim::sys {

// errno_init() sets err before the members are initialised; err has no initialiser that would overwrite it.
system_error::system_error() : std::runtime_error(errno_init(err)) {}

system_error::system_error(int sys_err_num)
    : std::runtime_error(sys_err_string(sys_err_num)), err(sys_err_num)
{
}

system_error::system_error(int err_num, const char* message) : std::runtime_error(message), err(err_num) {}

system_error::system_error(int err_num, const String& message) : std::runtime_error(message), err(err_num) {}

system_error::system_error(const system_error& r) = default;
system_error& system_error::operator=(const system_error& r) = default;
system_error::~system_error() noexcept = default;

const char* system_error::what() const noexcept
{
    return std::runtime_error::what();
}

type::Cloneable* system_error::clone(bool) const
{
    return new system_error(*this);
}

void system_error::raise() const
{
    throw system_error(*this);
}

String system_error::errno_init(int& e)
{
    e = errno;
    const char* const text = qv_si_strerror(e);
    return text != nullptr ? String(text) : sys_err_string(e);
}

}
