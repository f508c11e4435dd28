#ifndef QV_RTLAPI_REFERENCE_HPP
#define QV_RTLAPI_REFERENCE_HPP

#include <memory>

/** Helpers of the runtime layer. */
namespace qv {

/** Deleter that releases a reference. */
struct Detach
{
    /** Calls `detach` on `object`, which must not be null. */
    template <class Counted>
    void operator()(Counted* object) const
    {
        object->detach();
    }
};

/** Owns one reference to a reference-counted object; the constructor takes over an existing one. */
template <class Counted>
using Reference = std::unique_ptr<Counted, Detach>;

/** Adds a reference to a reference-counted object and returns its owner. Returns null for null. */
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
