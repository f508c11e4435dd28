#ifndef DALNIM_SYS_INTERNAL_RXERRORS_HPP
#define DALNIM_SYS_INTERNAL_RXERRORS_HPP

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <qv/rtlapi/RX_Exception.hpp>

namespace com::kor::dal::nim::sys::internal {

/** Throws a system_error with the error number of `exc` and its message, folded at 78 columns. */
[[noreturn]] void throwTranslated(const RX_Exception& exc);

/** Runs `action` and returns its result. Translates an RX_Exception into a system_error. */
template <class Action>
decltype(auto) translateRXErrors(Action&& action)
{
    try {
        return action();
    } catch (const RX_Exception& exc) {
        throwTranslated(exc);
    }
}

/**
 * As above, under a StackTrack of the caller that is constructed only if `action` fails: success does not pay
 * for it, and an unlock must not fail because memory runs out for a track.
 */
template <class Action>
decltype(auto) translateRXErrors(const char* scope, const char* class_name, const char* namespace_name,
                                 unsigned int line, Action&& action)
{
    try {
        return action();
    } catch (const RX_Exception& exc) {
        const StackTrack track(scope, class_name, namespace_name, line);
        throwTranslated(exc);
    }
}

}

#endif
