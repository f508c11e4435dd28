#ifndef DALNIM_SYS_DYNLIBRARY_HPP
#define DALNIM_SYS_DYNLIBRARY_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/ConstRcoRef.hpp>
#include <dalnim/sys/DynSymbol.hpp>
#include <qv/pmx/types.h>

#include <map>

namespace com::kor::dal::nim::sys {

class DynLoaderMgr;

/** A reference to a library, which keeps it loaded. */
typedef mem::ConstRcoRef<DynLibrary> DynLibraryRef;

/**
 * A loaded library. It is unloaded when the last reference to it, or to a symbol that was found through it,
 * is released, by the thread that releases it:
 *
 *     const DynLibraryRef plugin = DynLibrary::load("libplugin.so");
 *     const DynSymbolRef entry = plugin->symbol("plugin_entry");
 *     reinterpret_cast<int (*)(int)>(entry->func())(3);
 *
 * Initialisers and static destructors of the library run while the loader's lock is held. They may load
 * libraries, look up symbols and release references on their own thread, but must not wait for another thread
 * that does. Destructors cannot keep a library that is being unloaded.
 *
 * A library whose initialisers or static destructors use this interface must be loaded and unloaded with it,
 * not with a plain `dlopen` or `dlclose`. These acquire the lock of the dynamic linker before the loader's
 * lock, while this interface acquires it afterwards, so that two threads could deadlock.
 *
 * Thread safety: any thread that holds a reference may call any operation. After the static destructors of
 * the process have run, all other threads that load, look up or release block until the process has ended.
 */
class DALNIM_API DynLibrary final : public mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "DynLibrary";
    /**
     * Whether load() and loadProcess() may request global lookup; false disables it for all callers. Must be
     * set before other threads load libraries.
     */
    static bool DEFAULT_LOOKUP_SCOPE_GLOBAL;

    DynLibrary(const DynLibrary&) = delete;
    DynLibrary& operator=(const DynLibrary&) = delete;

    /**
     * Returns the library with the given name. Loads it unless it is already loaded under this name; only
     * names are compared, not files. Symbols are bound lazily, in a scope of the library's own. An
     * exception that leaves an initialiser of the library terminates the process.
     * @param libfile        the name, as for `dlopen`
     * @param global_lookup  recorded for the library, and never reset; has no effect on lookups
     * @throws system_error  the error number and "Unable to load "name": reason", followed by ", detail)" if
     *                       the dynamic linker reports a detail. 8 (ENOEXEC) and the detail "file: contains a
     *                       second copy of dalnim; link plug-ins with dalnim::plugin" if the library, or one
     *                       that it depends on, was linked with another copy of this library
     */
    static ConstDynLibraryRef load(const String& libfile, bool global_lookup = true);
    /** Returns the image of the process: its program and the libraries that were loaded with it. */
    static ConstDynLibraryRef loadProcess(bool global_lookup = true);

    /**
     * Returns the symbol with the given name. Searches this library and the libraries that it is linked with,
     * then all modules of the process. A symbol that is found in another module does not keep that module
     * loaded.
     * @throws system_error  0 and "Cannot lookup nil dynamic symbol name." if the name is empty; 0 and
     *                       "Unable to resolve dynamic symbol "name"" if no module defines it
     */
    DynSymbolRef symbol(const String& symname) const;
    /** Returns the name under which the library was loaded; empty for the process. */
    const String& name() const noexcept
    {
        return path;
    }

    /** Releases a reference as RefCntObject does. If only the loader's reference is left, releases that too.
     */
    void releaseRef() const override;
    /**
     * As above, without an exception. Releases the reference in any case. Returns true if the library was
     * destroyed, false if there are other references.
     */
    bool releaseRef(const std::nothrow_t&) const override;

private:
    friend class DynLoaderMgr;
    friend class DynSymbol;

    /** Orders by length first: symbols of one library often have a common prefix. */
    struct ShorterFirst
    {
        bool operator()(const String& left, const String& right) const noexcept
        {
            return left.size() != right.size() ? left.size() < right.size() : left < right;
        }
    };
    typedef std::map<String, mem::ConstRcoRef<DynSymbol>, ShorterFirst> SymbolMap;

    /** Takes ownership of the handle. Acquires a reference to the manager. */
    DynLibrary(qv_lhandle_t handle, bool global_lookup, const String& filepath, DynLoaderMgr& loadmgr);
    /** Unloads the library and logs that; logs a warning if the system cannot unload it. */
    ~DynLibrary() noexcept override;

    /** The handle, owned. */
    const qv_lhandle_t hnd;
    /** Whether any caller has requested global lookup. Guarded by the loader's lock. */
    mutable bool global;
    /** The name under which the library was loaded. */
    const String path;
    /** The manager, with one reference. */
    const DynLoaderMgr& loader;
    /** The symbols in the loader's record of this library, cached; null before the first lookup. */
    mutable SymbolMap* symbols;
};

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<sys::DynLibrary>;

}

#endif
