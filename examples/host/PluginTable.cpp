#include "PluginTable.hpp"

#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <iostream>
#include <stdexcept>
#include <utility>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

typedef nim::mt::MutexHolder<nim::mt::ReaderWriterLock> LockHolder;

/** A failure that cannot be logged is written to standard error. */
void logFailure(const std::exception& exc, const String& label)
{
    try {
        NIM_LOG_TRAPPED(Severity_WARNING, exc, label + " failed");
    } catch (const std::exception& failure) {
        std::cerr << "nimhost: " << label << " failed: " << exc.what()
                  << ", which cannot be logged: " << failure.what() << std::endl;
    }
}

/** The answer for the exception that is being handled, which is logged. */
Answer currentAnswer(const String& label)
{
    try {
        throw;
    } catch (const nim::sys::system_error& exc) {
        logFailure(exc, label);
        return {true, exc.what(), exc.error()};
    } catch (const std::exception& exc) {
        logFailure(exc, label);
        return {true, exc.what(), std::nullopt};
    } catch (...) {
        const std::string text = currentFailure();
        logFailure(std::runtime_error(text), label);
        return {true, text, std::nullopt};
    }
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
        if (slot->inEffect && !(settings == *slot->inEffect)) {
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
        throw std::invalid_argument("there is no plug-in \"" + name + "\"");
    }
    return *found;
}

void PluginTable::expect(const String& name)
{
    if (Slot* const found = find(name)) {
        const std::lock_guard<std::mutex> guard(found->stateLock);
        ++found->expected;
    }
}

void PluginTable::forget(const String& name)
{
    if (Slot* const found = find(name)) {
        const std::lock_guard<std::mutex> guard(found->stateLock);
        if (--found->expected == 0) {
            found->idle.notify_all();
        }
    }
}

/** The caller holds the slot's lock for writing, as that of unload() does. */
void PluginTable::load(Slot& slot)
{
    PluginSettings settings;
    {
        const std::lock_guard<std::mutex> guard(slot.stateLock);
        settings = slot.settings;
    }
    slot.plugin = std::make_unique<const Plugin>(settings.library, *settings.settings);
    const std::lock_guard<std::mutex> guard(slot.stateLock);
    slot.inEffect = std::move(settings);
}

void PluginTable::unload(Slot& slot)
{
    slot.plugin = nullptr;
    const std::lock_guard<std::mutex> guard(slot.stateLock);
    slot.inEffect.reset();
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
        // What was asked before is still answered by the old one.
        std::unique_lock<std::mutex> guard(chosen.stateLock);
        chosen.idle.wait(guard, [&] { return chosen.expected == 0; });
    }
    const LockHolder writing(chosen.lock.acquireForWrite());
    unload(chosen);
    load(chosen);
    NIM_LOG(Severity_NOTICE) << "plug-in " << name << " is loaded again";
}

}
