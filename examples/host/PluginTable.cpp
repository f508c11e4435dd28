#include "PluginTable.hpp"

#include <dalnim/nim.hpp>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

typedef nim::mt::MutexHolder<nim::mt::ReaderWriterLock> LockHolder;

}

PluginTable::PluginTable(const Configuration& configuration)
{
    for (const String& name : configuration.plugins()) {
        auto slot = std::make_unique<Slot>();
        slot->settings = configuration.plugin(name);
        slots.emplace(name, std::move(slot));
    }
}

void PluginTable::configure(const Configuration& configuration)
{
    for (const auto& [name, slot] : slots) {
        PluginSettings settings = configuration.plugin(name);
        const std::lock_guard<std::mutex> guard(slot->settingsLock);
        slot->settings = std::move(settings);
    }
}

void PluginTable::clear()
{
    for (const auto& [name, slot] : slots) {
        const LockHolder writing(slot->lock.acquireForWrite());
        slot->plugin = nullptr;
    }
}

PluginTable::Slot& PluginTable::slot(const String& name)
{
    const auto found = slots.find(name);
    if (found == slots.end()) {
        throw std::invalid_argument("there is no plug-in \"" + name + "\"");
    }
    return *found->second;
}

void PluginTable::load(Slot& slot)
{
    const std::lock_guard<std::mutex> guard(slot.settingsLock);
    slot.plugin = std::make_unique<const Plugin>(slot.settings.library, *slot.settings.settings);
}

String PluginTable::perform(const String& name, const ServiceCall& call)
{
    Slot& chosen = slot(name);
    for (;;) {
        {
            const LockHolder reading(chosen.lock.acquireForRead());
            if (chosen.plugin != nullptr) {
                return chosen.plugin->service().perform(call);
            }
        }
        const LockHolder writing(chosen.lock.acquireForWrite());
        if (chosen.plugin == nullptr) {
            load(chosen);
        }
    }
}

void PluginTable::reload(const String& name)
{
    Slot& chosen = slot(name);
    const LockHolder writing(chosen.lock.acquireForWrite());
    chosen.plugin = nullptr;
    load(chosen);
    NIM_LOG(Severity_NOTICE) << "plug-in " << name << " is loaded again";
}

}
