#include "Plugin.hpp"

#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <stdexcept>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

/**
 * Calls the entry. Replaces exceptions of types that the plug-in defines: their code is unloaded with the
 * library when an exception leaves the constructor of Plugin.
 */
nim::mem::RefCntObject* make(const nim::sys::DynSymbol& entry, const nim::io::Properties& settings)
{
    try {
        return reinterpret_cast<PluginEntry>(entry.func())(settings);
    } catch (const nim::sys::system_error& exc) {
        throw nim::sys::system_error(exc.error(), exc.what());
    } catch (...) {
        throw std::runtime_error(currentFailure());
    }
}

}

Plugin::Plugin(const nim::String& library, const nim::io::Properties& settings)
    : entry(nim::sys::DynLibrary::load(library)->symbol(PLUGIN_ENTRY)), object(make(*entry, settings))
{
}

const Service& Plugin::service() const
{
    const auto* const found = dynamic_cast<const Service*>(object.get());
    if (found == nullptr) {
        throw std::invalid_argument("this plug-in does not answer requests");
    }
    return *found;
}

}
