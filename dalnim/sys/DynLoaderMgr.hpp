#ifndef DALNIM_SYS_DYNLOADERMGR_HPP
#define DALNIM_SYS_DYNLOADERMGR_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/DynSymbol.hpp>
#include <dalnim/sys/LoaderStatistics.hpp>
#include <qv/pmx/thread_safety.h>

#include <map>

namespace com::kor::dal::nim::sys {

class DynLoaderMgr;
/** A reference to the manager. */
typedef mem::RcoRef<DynLoaderMgr> DynLoaderMgrRef;

/**
 * The cache of the libraries that the process has loaded by name, and of the symbols that were found in them.
 * As long as there is a reference to it, a library is not loaded again and a symbol not looked up again.
 * Applications use DynLibrary and DynSymbol instead.
 *
 * Thread safety: any thread may call any operation. One recursive lock guards the cache. It is held while a
 * library is loaded or unloaded, and fork() waits for it.
 */
class DALNIM_API DynLoaderMgr final : public mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "DynLoaderMgr";

    DynLoaderMgr(const DynLoaderMgr&) = delete;
    DynLoaderMgr& operator=(const DynLoaderMgr&) = delete;

    /** Returns the only manager, which the first call constructs. It is valid until the process has ended. */
    static DynLoaderMgrRef manager();

    /**
     * Returns the numbers of libraries that this process has loaded and unloaded. Acquires no lock. May be
     * called in a signal handler.
     */
    static LoaderStatistics statistics() noexcept;

    /** Loads a library. See DynLibrary::load(). */
    ConstDynLibraryRef image(const String& imgfile, bool global);
    /**
     * Looks up a symbol. See DynLibrary::symbol().
     * @throws system_error  22 (EINVAL) and "Attempt to dereference null reference." if `imgref` is empty
     */
    DynSymbolRef symbol(const ConstDynLibraryRef& imgref, const String& symname) const;

    /** Removes a library to which only the cache refers. Returns true if it did, which destroys `ref`. */
    bool checkRefs(const DynLibrary& ref) const;
    /** As above for a symbol. Its library may be destroyed, too. */
    bool checkRefs(const DynSymbol& ref) const;

private:
    friend class DynLibrary;
    friend class DynSymbol;

    typedef mt::MutexHolder<mt::CriticalSection> Holder;

    typedef DynLibrary::SymbolMap SymbolMap;

    /** The cache entry of a library. */
    struct LibRec
    {
        ConstDynLibraryRef library;
        /** By the names under which they were looked up. */
        SymbolMap symbols;
    };

    DynLoaderMgr();
    ~DynLoaderMgr() override;

    /**
     * Acquires the loader's lock and keeps it, after the static destructors of the process have run. The
     * dynamic linker then finalises the libraries one by one, and would initialise again those that a library
     * loaded by another thread needs. Other threads therefore block in the loader from here on. The thread
     * that ends the process does not.
     */
    __attribute__((destructor)) static void endLoads() noexcept;

    const StringVector& get_path() const noexcept
    {
        return path;
    }

    DynSymbolRef find(const DynLibrary* library, const String& symname) const;
    [[noreturn]] void rejectLookup(const String& symname) const;
    /**
     * Releases a reference with `releaseOne`, then the cache's reference if that is the only one left.
     * Defined in sys/src/DynLoaderRelease.hpp.
     */
    template <class T, class ReleaseOne>
    bool release(const T& object, ReleaseOne releaseOne) const;

    /** Returns the symbols in the library's record, which is inserted if there is none, and caches them in
     * it. */
    SymbolMap& insertRecord(const DynLibrary& library) const DALNIM_REQUIRES(sync);
    DynSymbolRef resolve(const DynLibrary& library, SymbolMap& symbols, const String& symname) const
        DALNIM_REQUIRES(sync);
    bool removeUnused(const DynLibrary& library) const DALNIM_REQUIRES(sync);
    bool removeUnused(const DynSymbol& symbol) const DALNIM_REQUIRES(sync);

    /**
     * Recursive, since initialisers and destructors of libraries may use the loader.
     * Acquired before the logger's locks.
     */
    mt::CriticalSection sync;
    /** By the names under which they were loaded. */
    mutable std::map<String, LibRec> libs DALNIM_GUARDED_BY(sync);
    // Reserved for a search path.
    UInt32_t pkey;
    StringVector path;
};

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<sys::DynLoaderMgr>;
extern template class DALNIM_API RcoRef<sys::DynLoaderMgr>;

}

#endif
