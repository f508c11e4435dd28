#ifndef TESTS_SYS_DYNPLUGINS_HPP
#define TESTS_SYS_DYNPLUGINS_HPP

#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/DynLoaderMgr.hpp>
#include <dalnim/sys/DynSymbol.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <string>

#include <support/Files.hpp>

namespace dyntest {

using com::kor::dal::nim::String;
using com::kor::dal::nim::StringVector;
namespace sys = com::kor::dal::nim::sys;
using sys::ConstDynLibraryRef;
using sys::ConstDynSymbolRef;
using sys::DynLibrary;
using sys::DynLibraryRef;
using sys::DynLoaderMgr;
using sys::DynLoaderMgrRef;
using sys::DynSymbol;
using sys::DynSymbolRef;
using sys::system_error;

// The paths of the plug-ins that the build has created.
inline const String BASE = DYN_BASE;
inline const String PLAIN = DYN_PLAIN;
inline const String OTHER = DYN_OTHER;
inline const String HOOKED = DYN_HOOKED;
inline const String LOGGING = DYN_LOGGING;
inline const String LOADING = DYN_LOADING;

/** Returns true if a part of the file is mapped into the process. */
inline bool isMapped(const String& file)
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.size() > file.size() && line.compare(line.size() - file.size(), file.size(), file) == 0
            && line[line.size() - file.size() - 1] == ' ') {
            return true;
        }
    }
    return false;
}

/** Returns the value of the int variable that a symbol denotes. */
inline int valueOf(const ConstDynSymbolRef& symbol)
{
    return *static_cast<const int*>(symbol->data());
}

/** The system_error that a call throws. */
struct Failure
{
    template <class Call>
    explicit Failure(Call call)
    {
        try {
            call();
        } catch (const system_error& exc) {
            error = exc.error();
            text = exc.what();
            trace = exc.trace();
        }
    }

    int error = 12345;
    String text = "nothing";
    StringVector trace;
};

/** Returns the innermost labels of a trace, without their line numbers. */
inline StringVector functionsOf(const StringVector& trace)
{
    StringVector functions;
    for (const String& label : trace) {
        functions.push_back(label.substr(0, label.find(':')));
    }
    return functions;
}

/** The functions that the hooked plug-in calls when it is loaded and unloaded, until the end of the scope. */
struct Hooks
{
    Hooks();
    Hooks(const Hooks&) = delete;
    Hooks& operator=(const Hooks&) = delete;
    ~Hooks();

    std::function<void()> loaded;
    std::function<void()> unloaded;
};

}

#endif
