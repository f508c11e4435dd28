// A plug-in that uses the library while it is loaded and unloaded. Built several times, under PLUGIN_NAME;
// with PLUGIN_FORGETS it leaves its module with the logger when it goes.

#include "Life.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

namespace {

namespace log = com::kor::dal::nim::log;

log::Module module("process." PLUGIN_NAME, log::GET_NIM_LOG_LOGGER_VAR());

/** Made behind the module, and so destroyed before it. */
struct Life
{
    Life()
    {
        processtest::useLibrary(PLUGIN_NAME " loads");
        NIM_LOG_TO(module, Severity_WARNING) << PLUGIN_NAME " is there";
    }
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;
    ~Life()
    {
        NIM_LOG_TO(module, Severity_WARNING) << PLUGIN_NAME " goes";
        processtest::useLibrary(PLUGIN_NAME " unloads");
#ifndef PLUGIN_FORGETS
        dynamic_cast<log::Write&>(log::GET_NIM_LOG_LOGGER_VAR()).unregisterModule(module);
#endif
    }
};

const Life life;

/** Logs when its thread ends. */
struct ThreadEnd
{
    ~ThreadEnd()
    {
        NIM_LOG(Severity_WARNING) << PLUGIN_NAME " sees a thread end";
    }
    bool isUsed = false;
};

thread_local ThreadEnd thread_end;

}

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void process_say(const char* text);
EXPORTED void process_use(const char* moment);
EXPORTED void process_see_thread_end();

/** Under the plug-in's own module. */
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
    thread_end.isUsed = true;
}
