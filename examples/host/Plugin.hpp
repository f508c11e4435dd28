#ifndef NIMHOST_PLUGIN_HPP
#define NIMHOST_PLUGIN_HPP

#include "plugins/Service.hpp"

#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/sys/DynSymbol.hpp>

namespace nimhost {

/** A loaded library and the object that it has created. The entry symbol keeps the library loaded. */
class Plugin
{
public:
    /**
     * Loads a plug-in and creates its object.
     * @throws system_error if it cannot be loaded. Exceptions of its entry become system_error or
     * runtime_error
     */
    Plugin(const com::kor::dal::nim::String& library, const com::kor::dal::nim::io::Properties& settings);

    /** @throws std::invalid_argument if the object is not a Service */
    const Service& service() const;

private:
    const com::kor::dal::nim::sys::DynSymbolRef entry;
    // Declared after `entry`, so that it is destroyed before the library, which contains its code, is
    // unloaded.
    const com::kor::dal::nim::mem::RefCntObjectRef object;
};

}

#endif
