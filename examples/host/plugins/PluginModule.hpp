#ifndef NIMHOST_PLUGINS_PLUGINMODULE_HPP
#define NIMHOST_PLUGINS_PLUGINMODULE_HPP

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

namespace nimhost {

/**
 * The log module of a plug-in, a static object in its library: it is registered when the library is loaded,
 * and unregistered before it is unloaded.
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

    /** Returns the default logger. */
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
