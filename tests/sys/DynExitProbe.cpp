// A program that uses libraries while it exits.
//
//     dyn_exit_probe (held | late | threads) PLUGIN

#include <dalnim/log/Control.hpp>
#include <dalnim/log/Common.hpp>
#include <dalnim/sys/DynLibrary.hpp>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

namespace sys = com::kor::dal::nim::sys;
using com::kor::dal::nim::String;

int valueIn(const char* plugin)
{
    const sys::DynSymbolRef symbol = sys::DynLibrary::load(plugin)->symbol("dyn_other_value");
    return *static_cast<const int*>(symbol->data());
}

/** Constructed before the loader's manager, so any static object of the loader is destroyed before it. */
struct Last
{
    ~Last()
    {
        held.clear();
        if (plugin != nullptr) {
            std::printf("late %d\n", valueIn(plugin));
        }
        std::fflush(stdout);
    }

    sys::DynSymbolRef held;
    const char* plugin = nullptr;
};

Last last;

}

int main(int argc, char** argv)
{
    if (argc != 3) {
        return 2;
    }
    const char* const mode = argv[1];
    const char* const plugin = argv[2];
    com_kor_dal_nim_log_control.setOutputMask(0);
    com_kor_dal_nim_log_control.setSeverity(com::kor::dal::nim::log::Severity_INFO);
    if (std::strcmp(mode, "held") == 0) {
        last.held = sys::DynLibrary::load(plugin)->symbol("dyn_other_value");
    } else if (std::strcmp(mode, "late") == 0) {
        std::printf("early %d\n", valueIn(plugin));
        last.plugin = plugin;
    } else {
        com_kor_dal_nim_log_control.setSeverity(com::kor::dal::nim::log::Severity_ERROR);
        static std::atomic<int> started(0);
        for (int i = 0; i < 3; ++i) {
            std::thread([plugin] {
                for (;;) {
                    if (valueIn(plugin) != 5) {
                        std::abort();
                    }
                    ++started;
                }
            }).detach();
        }
        while (started < 100) {
            std::this_thread::yield();
        }
    }
    return 0;
}
