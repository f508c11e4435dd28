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

/** The outcome of a request. Contains no object whose code is in the plug-in. */
struct Answer
{
    bool failed;
    /** The result, or the error message. */
    com::kor::dal::nim::String text;
    /** Error number of the failure, if it has one. */
    std::optional<int> error;
};

/**
 * The plug-ins that answer requests. Only the plug-ins listed in the configuration are available; each one is
 * loaded by the first request for it. Thread-safe.
 */
class PluginTable
{
public:
    /** @throws ConfigurationError if the settings of a plug-in are invalid */
    explicit PluginTable(const Configuration& configuration);

    /** Announces a request, for which reload() waits until withdraw() is called. */
    void announce(const com::kor::dal::nim::String& name);
    /** Withdraws the announcement of a request that was answered or dropped. */
    void withdraw(const com::kor::dal::nim::String& name);

    /**
     * Performs a request. Failures of any type are logged with `label` and returned, because an exception
     * whose code is in the plug-in must not outlive the lock that keeps the plug-in loaded.
     */
    Answer perform(const com::kor::dal::nim::String& name, const ServiceCall& call,
                   const com::kor::dal::nim::String& label);

    /**
     * Waits until all requests announced for a plug-in are answered, unloads it, and loads it with the
     * current settings. Requests for other plug-ins are not delayed. If the load fails, the next request
     * tries again.
     * @throws std::invalid_argument if the name is not listed; exceptions of the load propagate
     */
    void reload(const com::kor::dal::nim::String& name);

    /** Unloads all plug-ins. The next request for one loads it again. */
    void clear();

    /**
     * Stores new settings, which take effect when a plug-in is loaded. Returns the names of the plug-ins that
     * are loaded with other settings, and must be reloaded.
     */
    std::vector<com::kor::dal::nim::String> configure(const Configuration& configuration);

private:
    struct Slot
    {
        /** Held for reading while the plug-in is used, for writing while it is loaded or unloaded. */
        com::kor::dal::nim::mt::ReaderWriterLock lock;
        std::unique_ptr<const Plugin> plugin;

        /** Guards all members below. Never held while code of the plug-in runs. */
        std::mutex stateLock;
        PluginSettings settings;
        /** Settings that the plug-in was loaded with; none if it is not loaded. */
        std::optional<PluginSettings> loadedSettings;
        /** Number of requests that are announced and not yet answered. */
        std::size_t announced = 0;
        /** Notified when `announced` becomes 0. */
        std::condition_variable idle;
    };

    Slot* find(const com::kor::dal::nim::String& name);
    Slot& slot(const com::kor::dal::nim::String& name);
    static void load(Slot& slot);
    static void unload(Slot& slot);

    /** Plug-ins by name. Constant after construction. */
    std::map<com::kor::dal::nim::String, std::unique_ptr<Slot>> slots;
};

}

#endif
