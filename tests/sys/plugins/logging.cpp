// A plug-in with its own log module, which is registered while the plug-in is loaded.

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

namespace {

namespace log = com::kor::dal::nim::log;

struct Registered
{
    ~Registered()
    {
        NIM_LOG_TO(module, Severity_NOTICE) << "going";
        dynamic_cast<log::Write&>(log::GET_NIM_LOG_LOGGER_VAR()).unregisterModule(module);
    }

    log::Module module{"dyn.logging", log::GET_NIM_LOG_LOGGER_VAR()};
};

Registered registered;

}

extern "C" __attribute__((visibility("default"))) void dyn_logging_say(const char* text);

void dyn_logging_say(const char* text)
{
    NIM_LOG_TO(registered.module, Severity_NOTICE) << text;
}
