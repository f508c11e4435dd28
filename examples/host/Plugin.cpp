#include "Plugin.hpp"

#include <dalnim/nim.hpp>

#include <stdexcept>

namespace nimhost {

namespace nim = com::kor::dal::nim;

Plugin::Plugin(const nim::String& library, const nim::io::Properties& settings)
    : entry(nim::sys::DynLibrary::load(library)->symbol(PLUGIN_ENTRY)),
      object(reinterpret_cast<PluginEntry>(entry->func())(settings))
{
}

const Service& Plugin::service() const
{
    const auto* const found = dynamic_cast<const Service*>(object.get());
    if (found == nullptr) {
        throw std::invalid_argument("this plug-in answers no requests");
    }
    return *found;
}

}
