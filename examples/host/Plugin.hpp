#ifndef NIMHOST_PLUGIN_HPP
#define NIMHOST_PLUGIN_HPP

#include "plugins/Service.hpp"

#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/sys/DynSymbol.hpp>

namespace nimhost {

/** A library that is loaded and the object that it made. Its entry keeps the library in memory. */
class Plugin
{
public:
    /**
     * Throws system_error if it cannot be loaded. What its entry throws becomes a system_error or
     * runtime_error.
     */
    Plugin(const com::kor::dal::nim::String& library, const com::kor::dal::nim::io::Properties& settings);

    /** Throws `std::invalid_argument` when it is something else. */
    const Service& service() const;

private:
    const com::kor::dal::nim::sys::DynSymbolRef entry;
    // Behind the entry: its code is in the library, which must not go before it.
    const com::kor::dal::nim::mem::RefCntObjectRef object;
};

}

#endif
