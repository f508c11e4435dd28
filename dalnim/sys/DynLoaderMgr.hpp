#ifndef DALNIM_SYS_DYNLOADERMGR_HPP
#define DALNIM_SYS_DYNLOADERMGR_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/DynSymbol.hpp>

#include <map>

namespace com::kor::dal::nim::sys {

class DynLoaderMgr;
/** A counted reference to the manager. */
typedef mem::RcoRef<DynLoaderMgr> DynLoaderMgrRef;

/**
 * The libraries that the process has loaded by name, and the symbols that were found in them. A name
 * is loaded once, and a symbol looked up once, for as long as somebody holds it.
 *
 * Any thread may call everything here. One recursive lock guards the table; it is held while a library
 * is loaded or unloaded, and fork() waits for it. Applications use DynLibrary and DynSymbol instead.
 */
class DALNIM_API DynLoaderMgr final : public mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "DynLoaderMgr";

    DynLoaderMgr(const DynLoaderMgr&) = delete;
    DynLoaderMgr& operator=(const DynLoaderMgr&) = delete;

    /** The one manager, made at the first call. It can be used for as long as the process runs. */
    static DynLoaderMgrRef manager();

    /** As DynLibrary::load(). */
    ConstDynLibraryRef image(const String& imgfile, bool global);
    /**
     * As DynLibrary::symbol(); system_error 22, "Attempt to dereference null reference.", without a
     * library.
     */
    DynSymbolRef symbol(const ConstDynLibraryRef& imgref, const String& symname) const;

    /** Drops what nobody but the cache holds; true when it did, and then `ref` is gone. */
    bool checkRefs(const DynLibrary& ref) const;
    /** The same for a symbol, whose library may go with it. */
    bool checkRefs(const DynSymbol& ref) const;

private:
    friend class DynLibrary;
    friend class DynSymbol;

    typedef mt::MutexHolder<mt::CriticalSection> Holder;

    typedef DynLibrary::SymbolMap SymbolMap;

    struct LibRec
    {
        ConstDynLibraryRef library;
        /** By the names asked for. */
        SymbolMap symbols;
    };

    DynLoaderMgr();
    ~DynLoaderMgr() override;

    /**
     * Called when the static destructors of the process have run. The dynamic linker ends the libraries one
     * by one then, and would begin those anew that are needed by what another thread loads. So the other
     * threads that come to the loader from here on stay there; the one that ends the process does not.
     */
    __attribute__((destructor)) static void endLoads() noexcept;

    const StringVector& get_path() const noexcept
    {
        return path;
    }

    DynSymbolRef find(const DynLibrary* library, const String& symname) const;
    [[noreturn]] void rejectLookup(const String& symname) const;
    /**
     * Releases a reference by `releaseOne`, and then the cache's own if that is the only one left. Defined
     * in sys/src/DynLoaderRelease.hpp.
     */
    template <class T, class ReleaseOne>
    bool release(const T& object, ReleaseOne releaseOne) const;

    // All of these are called with sync held.
    /** The symbols of the library's record, which is made if there is none; the library notes them. */
    SymbolMap& insertRecord(const DynLibrary& library) const;
    DynSymbolRef resolve(const DynLibrary& library, SymbolMap& symbols, const String& symname) const;
    bool removeUnused(const DynLibrary& library) const;
    bool removeUnused(const DynSymbol& symbol) const;

    /** Recursive: what is loaded or unloaded may come back here. Taken before the logger's locks. */
    mt::CriticalSection sync;
    /** By the name that was asked for. */
    mutable std::map<String, LibRec> libs;
    // Reserved for a search path.
    [[maybe_unused]] UInt32_t pkey;
    StringVector path;
};

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<sys::DynLoaderMgr>;
extern template class DALNIM_API RcoRef<sys::DynLoaderMgr>;

}

#endif
