#ifndef DALNIM_SYS_INTERNAL_RXERRORS_HPP
#define DALNIM_SYS_INTERNAL_RXERRORS_HPP

#include <dalnim/sys/SysError.hpp>
#include <qv/rtlapi/RX_Exception.hpp>

namespace com::kor::dal::nim::sys::internal {

/** The failure of the runtime layer as the library's own: its code, its text folded at 78 columns. */
[[noreturn]] void throwTranslated(const RX_Exception& exc);

/** Runs `action`, and turns what the runtime layer raises in it into a system_error. */
template <class Action>
void translateRXErrors(Action&& action)
{
    try {
        action();
    } catch (const RX_Exception& exc) {
        throwTranslated(exc);
    }
}

}

#endif
