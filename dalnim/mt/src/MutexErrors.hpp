#ifndef DALNIM_MT_SRC_MUTEXERRORS_HPP
#define DALNIM_MT_SRC_MUTEXERRORS_HPP

#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>

namespace com::kor::dal::nim::mt {

/**
 * Runs an operation of the runtime layer, and turns what it raises into a system_error. The track is made
 * with the failure: the good path does not pay for it, and an unlock must not fail because a track got no
 * memory.
 */
template <class Operation>
void translated(const char* scope, const char* class_name, unsigned int line, Operation&& operation)
{
    try {
        operation();
    } catch (const RX_Exception& exc) {
        const sys::StackTrack track(scope, class_name, NAMESPACE_NAME, line);
        sys::internal::throwTranslated(exc);
    }
}

}

#endif
