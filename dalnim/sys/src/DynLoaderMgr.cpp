#include <dalnim/dalbase.hpp>

#include <dalnim/sys/DynLoaderMgr.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <dalnim/sys/src/LoaderCounters.hpp>
#include <qv/pmx/library.h>
#include <qv/pmx/src/probes.hpp>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <pthread.h>
#include <type_traits>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::sys {

namespace {

struct Unload
{
    void operator()(qv_lhandle_t handle) const
    {
        LoaderCounters::increase(qv_si_library_unload(handle) == 0 ? LoaderCounters::unloaded
                                                                   : LoaderCounters::failedUnloads);
    }
};

struct DestroyList
{
    void operator()(qv_module_list_t list) const
    {
        qv_si_module_destroy_list(list);
    }
};

typedef std::unique_ptr<std::remove_pointer_t<qv_lhandle_t>, Unload> Handle;
typedef std::unique_ptr<std::remove_pointer_t<qv_module_list_t>, DestroyList> ModuleList;
typedef std::unique_ptr<char, decltype(&std::free)> SystemText;

/** Returns false if `text` contains a NUL, at which the system interface would truncate it to another name.
 */
bool isName(const String& text)
{
    return text.find('\0') == String::npos;
}

/**
 * Loads a library. An exception of one of its initialisers terminates the process here: if it propagated, the
 * dynamic linker's lock would stay locked, and every other thread would eventually wait for it.
 */
qv_err_t load_or_terminate(const String& imgfile, char** text, qv_lhandle_t* handle) noexcept
{
    return qv_si_library_nload(imgfile.c_str(), text, handle);
}

Handle load_library(const String& imgfile)
{
    char* text = nullptr;
    qv_lhandle_t handle = nullptr;
    const qv_err_t status = isName(imgfile) ? load_or_terminate(imgfile, &text, &handle) : ENOENT;
    const SystemText detail(text, &std::free);
    if (status == 0) {
        QV_PROBE_PLUGIN_LOADED(imgfile.c_str(), handle);
        LoaderCounters::increase(LoaderCounters::loaded);
        return Handle(handle);
    }
    LoaderCounters::increase(LoaderCounters::failedLoads);
    String message = "Unable to load \"" + imgfile + "\": " + sys_err_string(status);
    if (detail && *detail != '\0') {
        // The closing parenthesis has no opening one. Readers of these messages look for it.
        message.append(", ").append(detail.get()).push_back(')');
    }
    throw system_error(status, message);
}

/** Returns the address of a symbol, or null if no module defines it. */
void* find_symbol(qv_lhandle_t library, const String& symname)
{
    if (!isName(symname)) {
        return nullptr;
    }
    qv_module_list_t modules = nullptr;
    if (const qv_err_t status = qv_si_module_create_list(&modules)) {
        throw system_error(status, sys_err_string(status));
    }
    const ModuleList owner(modules);
    return qv_si_lib_find_symbol(library, modules, symname.c_str());
}

/**
 * The only manager, or null before it is constructed. Never destroyed: static destructors and running threads
 * may load, look up and release while the process exits.
 *
 * Written once, under InitLock. The store releases the manager's fields to a thread whose first load, an
 * acquire, sees it. The load under the lock may be relaxed: the lock orders it after the store.
 */
std::atomic<DynLoaderMgr*> instance{nullptr};

/** How a fork holds the manager's lock. */
internal::ForkSafeMutex::Hold fork_hold;

}

DynLoaderMgr::DynLoaderMgr() : sync(true), pkey(0) {}

DynLoaderMgr::~DynLoaderMgr() = default;

DynLoaderMgrRef DynLoaderMgr::manager()
{
    DynLoaderMgr* known = instance.load(std::memory_order_acquire);
    if (known == nullptr) {
        const InitLock lock(true);
        known = instance.load(std::memory_order_relaxed);
        if (known == nullptr) {
            known = new DynLoaderMgr;
            known->acquireRef();
            instance.store(known, std::memory_order_release);
        }
    }
    // The child of a fork must have a consistent cache and an unlocked lock. Handlers that are registered
    // last run first: this lock is acquired before the other locks of the library, as everywhere. In the
    // child of a fork during the registration, pthread_once() starts again.
    static pthread_once_t fork_once = PTHREAD_ONCE_INIT;
    pthread_once(&fork_once, [] {
        pthread_atfork(
            [] { fork_hold.prepare(internal::ForkSafeMutex::of(instance.load()->sync), nullptr); },
            [] { fork_hold.afterForkInParent(internal::ForkSafeMutex::of(instance.load()->sync)); },
            [] { fork_hold.afterForkInChild(internal::ForkSafeMutex::of(instance.load()->sync), true); });
    });
    return DynLoaderMgrRef(known);
}

LoaderStatistics DynLoaderMgr::statistics() noexcept
{
    return LoaderCounters::read();
}

// Keeps the lock, if it could be acquired in time.
DALNIM_NO_LOCK_ANALYSIS void DynLoaderMgr::endLoads() noexcept
{
    // With a time limit: an initialiser that another thread runs under the lock may be blocked.
    constexpr int TRIES = 1000;
    constexpr timespec MILLISECOND = {0, 1000000};
    if (const DynLoaderMgr* const manager = instance.load(std::memory_order_acquire)) {
        for (int i = 0; i < TRIES && !manager->sync.request(); ++i) {
            nanosleep(&MILLISECOND, nullptr);
        }
    }
}

ConstDynLibraryRef DynLoaderMgr::image(const String& imgfile, bool global)
{
    const StackTrack track("image()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const Holder holder(sync.acquire());
    auto found = libs.find(imgfile);
    if (found == libs.end()) {
        Handle handle = load_library(imgfile);
        // Initialisers of the library may have loaded it under this name as well.
        found = libs.find(imgfile);
        if (found == libs.end()) {
            const ConstDynLibraryRef created(new DynLibrary(handle.get(), global, imgfile, *this));
            static_cast<void>(handle.release());
            libs.try_emplace(imgfile).first->second.library = created;
            return created;
        }
    }
    const ConstDynLibraryRef& library = found->second.library;
    library->global = library->global || global;
    return library;
}

DynSymbolRef DynLoaderMgr::symbol(const ConstDynLibraryRef& imgref, const String& symname) const
{
    return find(imgref.get(), symname);
}

DynSymbolRef DynLoaderMgr::find(const DynLibrary* library, const String& symname) const
{
    // The paths that may fail have tracks of their own, so that a hit does not pay for one.
    if (library == nullptr || symname.empty()) {
        rejectLookup(symname);
    }
    const Holder holder(sync.acquire());
    SymbolMap& symbols = library->symbols != nullptr ? *library->symbols : insertRecord(*library);
    const auto found = symbols.find(symname);
    return found != symbols.end() ? found->second : resolve(*library, symbols, symname);
}

bool DynLoaderMgr::checkRefs(const DynLibrary& ref) const
{
    const Holder holder(sync.acquire());
    return removeUnused(ref);
}

bool DynLoaderMgr::checkRefs(const DynSymbol& ref) const
{
    const Holder holder(sync.acquire());
    return removeUnused(ref);
}

DynLoaderMgr::SymbolMap& DynLoaderMgr::insertRecord(const DynLibrary& library) const
{
    LibRec& record = libs.try_emplace(library.path).first->second;
    if (!record.library) {
        record.library = &library;
    }
    if (record.library == &library) {
        library.symbols = &record.symbols;
    }
    return record.symbols;
}

void DynLoaderMgr::rejectLookup(const String& symname) const
{
    const StackTrack track("symbol()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (symname.empty()) {
        throw system_error(0, "Cannot lookup nil dynamic symbol name.");
    }
    mem::throwNullDerefException();
}

DynSymbolRef DynLoaderMgr::resolve(const DynLibrary& library, SymbolMap& symbols, const String& symname) const
{
    const StackTrack track("symbol()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    void* const address = find_symbol(library.hnd, symname);
    if (address == nullptr) {
        throw system_error(0, "Unable to resolve dynamic symbol \"" + symname + '"');
    }
    const DynSymbolRef created(new DynSymbol(library, address, symname.c_str()));
    // The search may have unloaded a module whose destructors looked up the same symbol: keep that entry.
    return symbols.try_emplace(symname, created).first->second;
}

bool DynLoaderMgr::removeUnused(const DynLibrary& library) const
{
    if (library.refCount(true) != 1) {
        return false;
    }
    const auto found = libs.find(library.path);
    if (found == libs.end() || found->second.library != &library) {
        return false;
    }
    // Removed from the cache first: the destructors of the library may use the loader.
    const auto dropped = libs.extract(found);
    return true;
}

bool DynLoaderMgr::removeUnused(const DynSymbol& symbol) const
{
    if (symbol.refCount(true) != 1) {
        return false;
    }
    const auto record = libs.find(symbol.lib.path);
    if (record == libs.end()) {
        return false;
    }
    SymbolMap& symbols = record->second.symbols;
    const auto found = symbols.find(symbol.label);
    if (found == symbols.end() || found->second != &symbol) {
        return false;
    }
    // Removed from the table first: with the symbol its library, and this table, may be destroyed.
    const auto dropped = symbols.extract(found);
    return true;
}

}
