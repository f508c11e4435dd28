#ifndef QV_RTLAPI_SRC_DETACHED_HPP
#define QV_RTLAPI_SRC_DETACHED_HPP

#include <memory>

class RX_Closure;

namespace qv {

/** Gives up a reference. */
struct Detach
{
    template <class Counted>
    void operator()(Counted* object) const
    {
        object->detach();
    }
};

/** A reference to a counted object, taken over from whoever had it. */
template <class Counted>
using Reference = std::unique_ptr<Counted, Detach>;

/** One further reference to a counted object; null to null. */
template <class Counted>
Reference<Counted> share(Counted* object) noexcept
{
    if (object != nullptr) {
        object->attach();
    }
    return Reference<Counted>(object);
}

/** Starts a detached system thread. Gives 0 or an error number. */
int startDetached(void* (*function)(void*), void* argument) noexcept;

/**
 * From inside a handler for everything: whether the thread is being ended, by itself or by a
 * cancellation. The handler must throw on then.
 */
bool isThreadEnding() noexcept;

/**
 * Applies a closure on a thread where nobody waits for an exception. One that leaves it ends the
 * process through `std::terminate`, after a line on the standard error that names it.
 */
void applyDetached(RX_Closure& closure);

}

#endif
