// A plug-in that uses the library while it is loaded and unloaded. Built several times, with different values
// of PLUGIN_NAME; with PLUGIN_FORGETS it does not unregister its module.

#include "Life.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

namespace {

namespace log = com::kor::dal::nim::log;

log::Module module("process." PLUGIN_NAME, log::GET_NIM_LOG_LOGGER_VAR());

/** Constructed after the module, and so destroyed before it. */
struct StaticUser
{
    StaticUser()
    {
        processtest::useLibrary(PLUGIN_NAME " loads");
        NIM_LOG_TO(module, Severity_WARNING) << PLUGIN_NAME " is loaded";
    }
    StaticUser(const StaticUser&) = delete;
    StaticUser& operator=(const StaticUser&) = delete;
    ~StaticUser()
    {
        NIM_LOG_TO(module, Severity_WARNING) << PLUGIN_NAME " is being unloaded";
        processtest::useLibrary(PLUGIN_NAME " unloads");
#ifndef PLUGIN_FORGETS
        dynamic_cast<log::Write&>(log::GET_NIM_LOG_LOGGER_VAR()).unregisterModule(module);
#endif
    }
};

const StaticUser static_user;

/** Logs when its thread ends. */
struct ThreadExitLogger
{
    ~ThreadExitLogger()
    {
        NIM_LOG(Severity_WARNING) << PLUGIN_NAME " sees a thread end";
    }
    bool isUsed = false;
};

thread_local ThreadExitLogger thread_exit_logger;

}

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void process_say(const char* text);
EXPORTED void process_use(const char* moment);
EXPORTED void process_see_thread_end();

/** Logs under the plug-in's own module. */
void process_say(const char* text)
{
    NIM_LOG_TO(module, Severity_WARNING) << text;
}

/** Uses no object of the plug-in, so it can be called after its static objects have been destroyed. */
void process_use(const char* moment)
{
    processtest::useLibrary(moment);
}

void process_see_thread_end()
{
    thread_exit_logger.isUsed = true;
}
