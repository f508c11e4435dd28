#ifndef NIMHOST_PLUGINS_PLUGINMODULE_HPP
#define NIMHOST_PLUGINS_PLUGINMODULE_HPP

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

namespace nimhost {

/**
 * The log module of a plug-in, as a static object of its library: registered when that is loaded, and
 * out of the registry before it is unloaded.
 */
class PluginModule
{
public:
    explicit PluginModule(const char* name) : logModule(name, logger()) {}
    ~PluginModule()
    {
        logger().unregisterModule(logModule);
    }

    PluginModule(const PluginModule&) = delete;
    PluginModule& operator=(const PluginModule&) = delete;

    operator com::kor::dal::nim::log::Module&()
    {
        return logModule;
    }

    /** The logger of the process. */
    static com::kor::dal::nim::log::Write& logger()
    {
        using namespace com::kor::dal::nim::log;
        return dynamic_cast<Write&>(GET_NIM_LOG_LOGGER_VAR());
    }

private:
    com::kor::dal::nim::log::Module logModule;
};

}

#endif
