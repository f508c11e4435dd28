#include "Greeter.hpp"

#include <dalnim/nim.hpp>

#include <iostream>

using namespace com::kor::dal::nim;

namespace {

// The logger owns the module, so it outlives the plug-in.
log::Module& com_kor_dal_nim_log_module =
    log::Module::getInstance("greeters.polite", log::GET_NIM_LOG_LOGGER_VAR());

struct Presence
{
    Presence()
    {
        std::cerr << "  (library loaded)\n";
    }
    ~Presence()
    {
        std::cerr << "  (library unloaded)\n";
    }
} presence;

class Polite : public Greeter
{
    String greet(const String& name) const override
    {
        NIM_LOG(Severity_NOTICE) << "greeting " << name;
        return "Good day, " + name + '.';
    }
};

}

extern "C" __attribute__((visibility("default"))) Greeter* make_greeter()
{
    return new Polite;
}
