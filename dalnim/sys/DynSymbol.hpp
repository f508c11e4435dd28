#ifndef DALNIM_SYS_DYNSYMBOL_HPP
#define DALNIM_SYS_DYNSYMBOL_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/ConstRcoRef.hpp>

namespace com::kor::dal::nim::sys {

class DynLibrary;
/** A reference to a library, which keeps it loaded. */
typedef mem::ConstRcoRef<DynLibrary> ConstDynLibraryRef;

/**
 * A symbol that was found through a library. It keeps that library loaded. A symbol is destroyed when the
 * last reference other than the loader's is released, and then releases its library.
 *
 * Thread safety: any thread that holds a reference may call any operation.
 */
class DALNIM_API DynSymbol final : public mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "DynSymbol";

    DynSymbol(const DynSymbol&) = delete;
    DynSymbol& operator=(const DynSymbol&) = delete;

    /** Returns the address as that of a variable. */
    void* data() const noexcept
    {
        return sym.data;
    }
    /** Returns the address as that of a function, for the caller to cast to the function's type. */
    void (*func() const noexcept)()
    {
        return sym.func;
    }
    /** Returns the name under which the symbol was looked up. */
    const String& name() const noexcept
    {
        return label;
    }
    /** Returns the library through which it was found. To use the result, include DynLibrary.hpp. */
    ConstDynLibraryRef library() const;

    /** Releases a reference as RefCntObject does. If only the loader's reference is left, releases that too.
     */
    void releaseRef() const override;
    /**
     * As above, without an exception. Releases the reference in any case. Returns true if the symbol was
     * destroyed, false if there are other references.
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
    /** The library, with one reference. */
    const DynLibrary& lib;
    /** The name under which the symbol was looked up. */
    const String label;
};

/** @name References to symbols */
/** @{ */
/** A reference to a symbol, which keeps its library loaded. */
typedef mem::ConstRcoRef<DynSymbol> ConstDynSymbolRef;
typedef mem::ConstRcoRef<DynSymbol> DynSymbolRef;
/** @} */

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<sys::DynSymbol>;

}

#endif
