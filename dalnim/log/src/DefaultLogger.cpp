#include <dalnim/dalbase.hpp>

#include <dalnim/log/Common.hpp>

#include <dalnim/log/LibraryModule.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/ForkHandlers.hpp>
#include <dalnim/log/src/StatementScope.hpp>

#include <iostream>
#include <new>
#include <utility>

// The default logger and the modules that exist when the library has been loaded.

namespace com::kor::dal::nim::log {

namespace {

/**
 * An object in static storage that is never destroyed. Threads may log while the process exits, and so may
 * the static destructors of plug-ins, in any order: the default logger and its modules outlive all of them.
 * Each record has been written to its file when its statement returns, so that nothing is left to flush.
 */
template <class T>
union NoDestructor
{
    constexpr NoDestructor() noexcept : none() {}
    ~NoDestructor() {}

    template <class... Args>
    T& construct(Args&&... args)
    {
        return *::new (&object) T(std::forward<Args>(args)...);
    }

    char none;
    T object;
};

NoDestructor<Module> default_module;
NoDestructor<Module> internal_module;

Write& default_write_instance()
{
    static NoDestructor<Write> storage;
    static Write& DEFAULT_INSTANCE = storage.construct();
    return DEFAULT_INSTANCE;
}

String internal_log_mod_name()
{
    return String(NAMESPACE_NAME) + ".internal";
}

/** Starts the log. The default logger lists its modules in the order in which they are constructed. */
Control& start()
{
    Write& logger = default_write_instance();
    ForkHandlers::install();
    StatementScope::initialize();
    default_module.construct(Module::DEFAULT_NAME, logger);
    internal_module.construct(internal_log_mod_name(), logger);
    return logger;
}

}

// Both references are initialised by the compiler, before any constructor runs. start() constructs the
// objects.
Module& Module::DEFAULT_INSTANCE = default_module.object;
Module& INTERNAL_LOG_MODULE = internal_module.object;

Log& GET_NIM_LOG_LOGGER_VAR()
{
    return default_write_instance();
}

}

// A process whose log cannot be constructed does not start.
// NOLINTBEGIN(cert-err58-cpp)
com::kor::dal::nim::log::Module& com_kor_dal_nim_log_module =
    com::kor::dal::nim::log::Module::DEFAULT_INSTANCE;
com::kor::dal::nim::log::Control& com_kor_dal_nim_log_control = com::kor::dal::nim::log::start();

com::kor::dal::nim::log::Module& com::kor::dal::nim::com_kor_dal_nim_log_module =
    com::kor::dal::nim::log::Module::getInstance("com.kor.dal.nim",
                                                 com::kor::dal::nim::log::GET_NIM_LOG_LOGGER_VAR());
// NOLINTEND(cert-err58-cpp)
