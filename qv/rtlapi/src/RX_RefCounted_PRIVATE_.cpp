#include <qv/rtlapi/RX_RefCounted_PRIVATE_.hpp>

#include <unistd.h>

#include <qv/pmx/src/standard_error.hpp>
#include <qv/rtlapi/RX_Exception_.hpp>

void RX_BadLockableDestruct() noexcept
{
    static constexpr char TEXT[] =
        "qv: a reference-counted object is destroyed while there are references to it\n";
    const ssize_t written = write(qv::standardError(), TEXT, sizeof TEXT - 1);
    static_cast<void>(written);
}

RX_RefCounted_PRIVATE_::~RX_RefCounted_PRIVATE_() noexcept(false)
{
    if (_refc != 0) {
        RX_BadLockableDestruct();
    }
}

void RX_RefCounted_PRIVATE_::throwFromConstructor(const RX_Exception_& exception)
{
    _refc = 0;
    exception.throwThis();
    __builtin_unreachable();
}
