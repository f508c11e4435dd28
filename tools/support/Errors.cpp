#include "Errors.hpp"

#include <dalnim/sys/SysError.hpp>

namespace nimtools {

Failure cannotRead(const std::string& name)
{
    return Failure("cannot read " + name + ": " + com::kor::dal::nim::sys::sys_err_string());
}

}
