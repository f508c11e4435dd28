#include "Greeter.hpp"

#include <dalnim/nim.hpp>

#include <iostream>

using namespace com::kor::dal::nim;

namespace {

/** A plug-in and what it made. */
class Plugin
{
public:
    explicit Plugin(const String& library)
        : entry(sys::DynLibrary::load(library)->symbol("make_greeter")),
          greeter(reinterpret_cast<GreeterEntry>(entry->func())())
    {
    }

    const Greeter& object() const
    {
        return *greeter;
    }

private:
    // Keeps the library in memory.
    const sys::DynSymbolRef entry;
    // Behind the entry, so that it goes first: its code is in the library.
    const GreeterRef greeter;
};

}

int main()
{
    com_kor_dal_nim_log_control.setOutputMask(log::Mask_MODULENAME | log::Mask_SEVERITY);
    // The plug-ins stand beside the program. A name without "/" is searched for as the system does it.
    const String folder = sys::System::getProcessPath(sys::System::DIRECTORY_PATH_ONLY) + '/';
    {
        const Plugin polite(folder + "polite.so");
        const Plugin again(folder + "polite.so");
        std::cerr << polite.object().greet("Ada") << '\n';
    }
    std::cerr << "without it\n";

    try {
        sys::DynLibrary::load("no-such-plug-in.so");
    } catch (const sys::system_error& failure) {
        std::cerr << failure.error() << ": " << failure.what() << '\n';
    }
    try {
        sys::DynLibrary::load(folder + "polite.so")->symbol("make_farewell");
    } catch (const sys::system_error& failure) {
        std::cerr << failure.error() << ": " << failure.what() << '\n';
    }
}
