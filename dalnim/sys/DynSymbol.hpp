#ifndef DALNIM_SYS_DYNSYMBOL_HPP
#define DALNIM_SYS_DYNSYMBOL_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/ConstRcoRef.hpp>

namespace com::kor::dal::nim::sys {

class DynLibrary;
/** A reference to a library, which keeps its code in memory. */
typedef mem::ConstRcoRef<DynLibrary> ConstDynLibraryRef;

/**
 * A symbol that was found through a library. It keeps that library loaded, and is itself kept by
 * references alone: with the last one outside the loader's cache it goes, and the library with it if
 * nobody else holds that.
 *
 * Everything here may be called by any thread that holds a reference.
 */
class DALNIM_API DynSymbol final : public mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "DynSymbol";

    DynSymbol(const DynSymbol&) = delete;
    DynSymbol& operator=(const DynSymbol&) = delete;

    /** The address as that of a variable. */
    void* data() const noexcept
    {
        return sym.data;
    }
    /** The same address as that of a function, for the caller to cast to its type. */
    void (*func() const noexcept)()
    {
        return sym.func;
    }
    /** The name that it was looked up by. */
    const String& name() const noexcept
    {
        return label;
    }
    /** Returns the library through which it was found. To use the result, include DynLibrary.hpp. */
    ConstDynLibraryRef library() const;

    /** As RefCntObject, and gives the cache's own reference up when that is the only one left. */
    void releaseRef() const override;
    /**
     * The same without an exception. True when the symbol is gone; false while others hold it, though
     * the reference is given up.
     */
    bool releaseRef(const std::nothrow_t&) const override;

private:
    friend class DynLoaderMgr;

    DynSymbol(const DynLibrary& library, void* symbol, const char* symname);
    DynSymbol(const DynLibrary& library, void (*symbol)(), const char* symname);
    ~DynSymbol() noexcept override;

    void acquireLibrary() const;

    const union Address
    {
        explicit Address(void* address) noexcept : data(address) {}
        explicit Address(void (*address)()) noexcept : func(address) {}

        void (*func)();
        void* data;
    } sym;
    /** With one reference of this symbol. */
    const DynLibrary& lib;
    const String label;
};

/** A counted reference to a symbol, which keeps its library in memory. */
typedef mem::ConstRcoRef<DynSymbol> ConstDynSymbolRef;
typedef mem::ConstRcoRef<DynSymbol> DynSymbolRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<sys::DynSymbol>;

}

#endif
