#include "PluginTable.hpp"

#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <stdexcept>
#include <utility>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

typedef nim::mt::MutexHolder<nim::mt::ReaderWriterLock> LockHolder;

/** Logs a failure, or writes it to standard error if it cannot be logged. */
void logFailure(const std::exception& exc, const String& label)
{
    try {
        NIM_LOG_TRAPPED(Severity_WARNING, exc, label + " failed");
    } catch (const std::exception& failure) {
        writeError({label, " failed: ", exc.what(), ", which cannot be logged: ", failure.what()});
    }
}

/** Logs the exception that is being handled, and returns it as an answer. */
Answer currentAnswer(const String& label)
{
    Answer answer = {true, String(), std::nullopt};
    withCurrentException([&](const std::exception& exc) {
        logFailure(exc, label);
        answer.text = exc.what();
        if (const auto* const system = dynamic_cast<const nim::sys::system_error*>(&exc)) {
            answer.error = system->error();
        }
    });
    return answer;
}

}

PluginTable::PluginTable(const Configuration& configuration)
{
    for (const String& name : configuration.plugins()) {
        auto slot = std::make_unique<Slot>();
        slot->settings = configuration.plugin(name);
        slots.emplace(name, std::move(slot));
    }
}

std::vector<String> PluginTable::configure(const Configuration& configuration)
{
    std::vector<String> waiting;
    for (const auto& [name, slot] : slots) {
        PluginSettings settings = configuration.plugin(name);
        const std::lock_guard<std::mutex> guard(slot->stateLock);
        if (slot->loadedSettings && !(settings == *slot->loadedSettings)) {
            waiting.push_back(name);
        }
        slot->settings = std::move(settings);
    }
    return waiting;
}

void PluginTable::clear()
{
    for (const auto& [name, slot] : slots) {
        const LockHolder writing(slot->lock.acquireForWrite());
        unload(*slot);
    }
}

PluginTable::Slot* PluginTable::find(const String& name)
{
    const auto found = slots.find(name);
    return found != slots.end() ? found->second.get() : nullptr;
}

PluginTable::Slot& PluginTable::slot(const String& name)
{
    Slot* const found = find(name);
    if (found == nullptr) {
        throw std::invalid_argument("unknown plug-in \"" + name + "\"");
    }
    return *found;
}

void PluginTable::announce(const String& name)
{
    if (Slot* const found = find(name)) {
        const std::lock_guard<std::mutex> guard(found->stateLock);
        ++found->announced;
    }
}

void PluginTable::withdraw(const String& name)
{
    if (Slot* const found = find(name)) {
        const std::lock_guard<std::mutex> guard(found->stateLock);
        if (--found->announced == 0) {
            found->idle.notify_all();
        }
    }
}

/** The caller of load() or unload() holds the slot's lock for writing. */
void PluginTable::load(Slot& slot)
{
    PluginSettings settings;
    {
        const std::lock_guard<std::mutex> guard(slot.stateLock);
        settings = slot.settings;
    }
    slot.plugin = std::make_unique<const Plugin>(settings.library, *settings.settings);
    const std::lock_guard<std::mutex> guard(slot.stateLock);
    slot.loadedSettings = std::move(settings);
}

void PluginTable::unload(Slot& slot)
{
    slot.plugin = nullptr;
    const std::lock_guard<std::mutex> guard(slot.stateLock);
    slot.loadedSettings.reset();
}

Answer PluginTable::perform(const String& name, const ServiceCall& call, const String& label)
{
    try {
        Slot& chosen = slot(name);
        for (;;) {
            {
                const LockHolder reading(chosen.lock.acquireForRead());
                if (chosen.plugin != nullptr) {
                    try {
                        return {false, chosen.plugin->service().perform(call), std::nullopt};
                    } catch (...) {
                        return currentAnswer(label);
                    }
                }
            }
            const LockHolder writing(chosen.lock.acquireForWrite());
            if (chosen.plugin == nullptr) {
                load(chosen);
            }
        }
    } catch (...) {
        return currentAnswer(label);
    }
}

void PluginTable::reload(const String& name)
{
    Slot& chosen = slot(name);
    {
        // Requests that were announced before are answered by the plug-in as it is loaded now.
        std::unique_lock<std::mutex> guard(chosen.stateLock);
        chosen.idle.wait(guard, [&] { return chosen.announced == 0; });
    }
    const LockHolder writing(chosen.lock.acquireForWrite());
    unload(chosen);
    load(chosen);
    NIM_LOG(Severity_NOTICE) << "plug-in " << name << " was reloaded";
}

}
