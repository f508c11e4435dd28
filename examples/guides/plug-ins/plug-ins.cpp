#include "Greeter.hpp"

#include <dalnim/nim.hpp>

#include <iostream>

using namespace com::kor::dal::nim;

namespace {

/** A plug-in and the object that it created. */
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
    // Keeps the library loaded.
    const sys::DynSymbolRef entry;
    // Declared after the entry, so that it is destroyed first: its code is in the library.
    const GreeterRef greeter;
};

}

int main()
{
    com_kor_dal_nim_log_control.setOutputMask(log::Mask_MODULENAME | log::Mask_SEVERITY);
    // The plug-ins are in the directory of the program. The system searches for names without "/".
    const String directory = sys::System::getProcessPath(sys::System::DIRECTORY_PATH_ONLY) + '/';
    {
        const Plugin polite(directory + "polite.so");
        const Plugin again(directory + "polite.so");
        std::cerr << polite.object().greet("Ada") << '\n';
    }
    std::cerr << "no plug-in is loaded\n";

    try {
        sys::DynLibrary::load("no-such-plug-in.so");
    } catch (const sys::system_error& failure) {
        std::cerr << failure.error() << ": " << failure.what() << '\n';
    }
    try {
        sys::DynLibrary::load(directory + "polite.so")->symbol("make_farewell");
    } catch (const sys::system_error& failure) {
        std::cerr << failure.error() << ": " << failure.what() << '\n';
    }
}
