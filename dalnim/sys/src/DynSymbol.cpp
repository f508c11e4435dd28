#include <dalnim/dalbase.hpp>

#include <dalnim/sys/DynSymbol.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <dalnim/sys/src/DynLoaderRelease.hpp>

namespace com::kor::dal::nim::sys {

DynSymbol::DynSymbol(const DynLibrary& library, void* symbol, const char* symname)
    : sym(symbol), lib(library), label(symname)
{
    acquireLibrary();
}

DynSymbol::DynSymbol(const DynLibrary& library, void (*symbol)(), const char* symname)
    : sym(symbol), lib(library), label(symname)
{
    acquireLibrary();
}

DynSymbol::~DynSymbol() noexcept
{
    lib.releaseRef(std::nothrow);
}

ConstDynLibraryRef DynSymbol::library() const
{
    return ConstDynLibraryRef(&lib);
}

void DynSymbol::releaseRef() const
{
    const StackTrack track("releaseRef()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    lib.loader.release(*this, [this] {
        RefCntObject::releaseRef();
        return true;
    });
}

bool DynSymbol::releaseRef(const std::nothrow_t&) const
{
    // If more than the cache's reference is left, there is nothing to remove and no need for the lock.
    if (releaseRefAbove(1)) {
        return false;
    }
    return lib.loader.release(*this, [this] { return RefCntObject::releaseRef(std::nothrow); });
}

void DynSymbol::acquireLibrary() const
{
    const StackTrack track("DynSymbol()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    lib.acquireRef();
}

}
