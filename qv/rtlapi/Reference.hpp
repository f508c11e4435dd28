#ifndef QV_RTLAPI_REFERENCE_HPP
#define QV_RTLAPI_REFERENCE_HPP

#include <memory>

/** Helpers of the runtime layer. */
namespace qv {

/** Gives up a reference. */
struct Detach
{
    /** Calls `detach` on an object that is not null. */
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

}

#endif
