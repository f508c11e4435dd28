#ifndef NIMHOST_PLUGINTABLE_HPP
#define NIMHOST_PLUGINTABLE_HPP

#include "Configuration.hpp"
#include "Plugin.hpp"

#include <dalnim/mt/ReaderWriterLock.hpp>

#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace nimhost {

/** The outcome of a request. Contains nothing whose code is in the plug-in. */
struct Answer
{
    bool failed;
    /** The result, or the reason of the failure. */
    com::kor::dal::nim::String text;
    /** The error number of the failure, if it has one. */
    std::optional<int> error;
};

/**
 * The plug-ins that answer requests, each loaded by its name with the first request for it. The
 * configuration lists the names; no other is ever loaded. Any thread may call everything.
 */
class PluginTable
{
public:
    /** Throws ConfigurationError. */
    explicit PluginTable(const Configuration& configuration);

    /** Announces a request: reload() waits for it until forget() is called. */
    void expect(const com::kor::dal::nim::String& name);
    /** Ends an announcement: the request was answered, or will not be asked. */
    void forget(const com::kor::dal::nim::String& name);

    /**
     * Asks a plug-in. Failures of any type are logged under `label` and returned: an exception whose code is
     * in the plug-in must not outlive the lock that keeps the plug-in in memory.
     */
    Answer perform(const com::kor::dal::nim::String& name, const ServiceCall& call,
                   const com::kor::dal::nim::String& label);

    /**
     * Waits until all requests announced for the plug-in are answered, unloads it, and loads it again with
     * the current settings; requests for other plug-ins are answered during the wait. If the load fails, the
     * next request tries once more. Throws `std::invalid_argument` for a name that is not listed, and what
     * loading throws.
     */
    void reload(const com::kor::dal::nim::String& name);

    /** Unloads all; the next request for one loads it again. */
    void clear();

    /**
     * New settings, for each plug-in that is loaded from now on. The result names those that are loaded with
     * other settings, which therefore wait until it is loaded again.
     */
    std::vector<com::kor::dal::nim::String> configure(const Configuration& configuration);

private:
    struct Slot
    {
        /** Held for reading by those who use the plug-in, for writing by those who load or unload it. */
        com::kor::dal::nim::mt::ReaderWriterLock lock;
        std::unique_ptr<const Plugin> plugin;

        /** Guards all below; no code of the plug-in runs under it. */
        std::mutex stateLock;
        PluginSettings settings;
        /** The settings that the plug-in was loaded with; none if it is not loaded. */
        std::optional<PluginSettings> inEffect;
        /** Requests that are announced and not answered. */
        std::size_t expected = 0;
        /** Signalled when `expected` reaches 0. */
        std::condition_variable idle;
    };

    Slot* find(const com::kor::dal::nim::String& name);
    Slot& slot(const com::kor::dal::nim::String& name);
    static void load(Slot& slot);
    static void unload(Slot& slot);

    /** Does not change once it is made. */
    std::map<com::kor::dal::nim::String, std::unique_ptr<Slot>> slots;
};

}

#endif
