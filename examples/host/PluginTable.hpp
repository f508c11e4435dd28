#ifndef NIMHOST_PLUGINTABLE_HPP
#define NIMHOST_PLUGINTABLE_HPP

#include "Configuration.hpp"
#include "Plugin.hpp"

#include <dalnim/mt/ReaderWriterLock.hpp>

#include <map>
#include <memory>
#include <mutex>

namespace nimhost {

/**
 * The plug-ins that answer requests, each loaded by its name with the first request for it. The
 * configuration lists the names; no other is ever loaded. Any thread may call everything.
 */
class PluginTable
{
public:
    explicit PluginTable(const Configuration& configuration);

    /** Throws `std::invalid_argument` for a name that is not listed, and what plug-ins throw. */
    com::kor::dal::nim::String perform(const com::kor::dal::nim::String& name, const ServiceCall& call);

    /**
     * Waits for the requests that the plug-in is busy with, lets it go from memory, and loads it again
     * with the settings of now. When that fails, the next request tries once more.
     */
    void reload(const com::kor::dal::nim::String& name);

    /** Lets all go from memory; the next request for one loads it again. */
    void clear();

    /** New settings, for what is loaded from now on. */
    void configure(const Configuration& configuration);

private:
    struct Slot
    {
        /** Read by those who use the plug-in, written by those who load it or let it go. */
        com::kor::dal::nim::mt::ReaderWriterLock lock;
        std::unique_ptr<const Plugin> plugin;
        std::mutex settingsLock;
        PluginSettings settings;
    };

    Slot& slot(const com::kor::dal::nim::String& name);
    static void load(Slot& slot);

    /** Does not change once it is made. */
    std::map<com::kor::dal::nim::String, std::unique_ptr<Slot>> slots;
};

}

#endif
