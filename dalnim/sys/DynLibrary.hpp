#ifndef DALNIM_SYS_DYNLIBRARY_HPP
#define DALNIM_SYS_DYNLIBRARY_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/ConstRcoRef.hpp>
#include <dalnim/sys/DynSymbol.hpp>
#include <qv/pmx/types.h>

#include <map>

namespace com::kor::dal::nim::sys {

class DynLoaderMgr;

/** A reference to a library, which keeps its code in memory. */
typedef mem::ConstRcoRef<DynLibrary> DynLibraryRef;

/**
 * A loaded library. It is unloaded by the thread that gives up the last reference to it or to a symbol
 * that was found through it, at that moment:
 *
 *     const DynLibraryRef plugin = DynLibrary::load("libplugin.so");
 *     const DynSymbolRef entry = plugin->symbol("plugin_entry");
 *     reinterpret_cast<int (*)(int)>(entry->func())(3);
 *
 * Everything here may be called by any thread that holds a reference. Loading and unloading run the
 * library's initialisers and its static destructors under the loader's lock; these may load, look up
 * and release on their own thread, and must not wait for another thread that does. A library that is
 * going cannot be brought back by its own destructors.
 *
 * A library whose initialisers or static destructors use this interface is to be loaded and unloaded by it,
 * and not by a plain `dlopen` or `dlclose`: these take the lock of the dynamic linker before the loader's,
 * which another thread that loads by this interface takes after it, and the two threads wait for each other
 * for ever. When the static destructors of the process have run, other threads that come here wait for its
 * end.
 */
class DALNIM_API DynLibrary final : public mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "DynLibrary";
    /**
     * Whether loads may ask for global look-up; false turns that off for all callers. To be set before
     * other threads load.
     */
    static bool DEFAULT_LOOKUP_SCOPE_GLOBAL;

    DynLibrary(const DynLibrary&) = delete;
    DynLibrary& operator=(const DynLibrary&) = delete;

    /**
     * The library of that name, loaded if nobody holds it under this name: the text counts, not the
     * file. The name means what it means to `dlopen`; symbols are bound lazily, in a scope of the
     * library's own.
     *
     * Throws system_error with the number of the failure and the text "Unable to load "name": reason",
     * followed by ", detail)" with what the dynamic linker has to say. An initialiser that throws ends
     * the process.
     * @param global_lookup remembered, and never taken back; it has no effect on the search
     */
    static ConstDynLibraryRef load(const String& libfile, bool global_lookup = true);
    /** The image of the process itself, and what it was started with. */
    static ConstDynLibraryRef loadProcess(bool global_lookup = true);

    /**
     * The symbol of that name: the library's own, or one of the libraries that it was linked with, or,
     * if these have none, of any module of the process. Such a module is not kept loaded by the symbol.
     *
     * Throws system_error 0: "Cannot lookup nil dynamic symbol name." for the empty name, "Unable to
     * resolve dynamic symbol "name"" for one that nobody defines.
     */
    DynSymbolRef symbol(const String& symname) const;
    /** The name that it was loaded by; empty for the process. */
    const String& name() const noexcept
    {
        return path;
    }

    /** As RefCntObject, and gives the cache's own reference up when that is the only one left. */
    void releaseRef() const override;
    /**
     * The same without an exception. True when the library is gone; false while others hold it, though
     * the reference is given up.
     */
    bool releaseRef(const std::nothrow_t&) const override;

private:
    friend class DynLoaderMgr;
    friend class DynSymbol;

    /** The symbols of a library begin alike: their lengths tell most of them apart. */
    struct ShorterFirst
    {
        bool operator()(const String& left, const String& right) const noexcept
        {
            return left.size() != right.size() ? left.size() < right.size() : left < right;
        }
    };
    typedef std::map<String, mem::ConstRcoRef<DynSymbol>, ShorterFirst> SymbolMap;

    /** Takes over the handle. */
    DynLibrary(qv_lhandle_t handle, bool global_lookup, const String& filepath, DynLoaderMgr& loadmgr);
    /** Unloads, and logs that; an unload that the system refuses is a warning. */
    ~DynLibrary() noexcept override;

    const qv_lhandle_t hnd;
    /** Whether anybody asked for global look-up. Guarded by the loader's lock. */
    mutable bool global;
    const String path;
    /** With one reference of this library. */
    const DynLoaderMgr& loader;
    /** Those in the record that the loader has of this library, to find them at once; null at first. */
    mutable SymbolMap* symbols;
};

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<sys::DynLibrary>;

}

#endif
