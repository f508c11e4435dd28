#include <dalnim/dalbase.hpp>

#include <dalnim/mem/MemOps.hpp>

#include <dalnim/sys/SysError.hpp>

#include <cerrno>
#include <typeinfo>

namespace com::kor::dal::nim::mem {

void throwNullDerefException()
{
    throw sys::system_error(EINVAL, "Attempt to dereference null reference.");
}

void throwBadCastException()
{
    throw std::bad_cast();
}

}
