#include "DynPlugins.hpp"

#include <cmath>
#include <type_traits>
#include <vector>

#include <dlfcn.h>

namespace {

using namespace dyntest;
using com::kor::dal::nim::mem::ConstRcoRef;
using com::kor::dal::nim::mem::RefCntObject;

static_assert(std::is_base_of_v<RefCntObject, DynSymbol>);
static_assert(std::is_same_v<ConstDynSymbolRef, ConstRcoRef<DynSymbol>>);
static_assert(std::is_same_v<DynSymbolRef, ConstRcoRef<DynSymbol>>);
static_assert(!std::is_default_constructible_v<DynSymbol>);
static_assert(!std::is_copy_constructible_v<DynSymbol>);
static_assert(!std::is_copy_assignable_v<DynSymbol>);
static_assert(!std::is_destructible_v<DynSymbol>);
static_assert(std::is_same_v<decltype(std::declval<const DynSymbol&>().data()), void*>);
static_assert(std::is_same_v<decltype(std::declval<const DynSymbol&>().func()), void (*)()>);

class DynSymbolTest : public testing::Test
{
protected:
    Failure failureOf(const String& name) const
    {
        return Failure([this, &name] { library->symbol(name); });
    }

    const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
};

TEST_F(DynSymbolTest, ReturnsItsNameAndLibrary)
{
    EXPECT_STREQ("DynSymbol", DynSymbol::CLASS_NAME);
    const DynSymbolRef symbol = library->symbol("dyn_plain_value");
    EXPECT_EQ("dyn_plain_value", symbol->name());
    EXPECT_EQ(library, symbol->library());
}

TEST_F(DynSymbolTest, DataAndFuncReturnTheSameAddress)
{
    const DynSymbolRef value = library->symbol("dyn_plain_value");
    EXPECT_EQ(17, *static_cast<int*>(value->data()));
    EXPECT_EQ(value->data(), reinterpret_cast<void*>(value->func()));

    const DynSymbolRef function = library->symbol("dyn_plain_function");
    EXPECT_EQ(20, reinterpret_cast<int (*)(int)>(function->func())(3));
    EXPECT_EQ(function->data(), reinterpret_cast<void*>(function->func()));
}

TEST_F(DynSymbolTest, SameNameReturnsTheSameObjectWhileItIsReferenced)
{
    const DynSymbolRef symbol = library->symbol("dyn_plain_value");
    EXPECT_EQ(2u, symbol->refCount(true)) << "the cache and this reference";
    const DynSymbolRef again = library->symbol(String("dyn_plain_value"));
    EXPECT_EQ(symbol, again);
    EXPECT_EQ(3u, symbol->refCount(true));
    EXPECT_EQ(symbol, DynLoaderMgr::manager()->symbol(library, "dyn_plain_value"));
    EXPECT_EQ(3u, library->refCount(true)) << "one for the symbol, whatever its own count";
}

TEST_F(DynSymbolTest, CanBeLookedUpAgainAfterItsDestruction)
{
    library->symbol("dyn_plain_value");
    EXPECT_EQ(2u, library->refCount(true)) << "the symbol has been destroyed";
    // Reuses the memory of the destroyed symbol.
    const DynSymbolRef other = library->symbol("dyn_plain_function");
    const DynSymbolRef second = library->symbol("dyn_plain_value");
    EXPECT_EQ("dyn_plain_value", second->name());
    EXPECT_EQ(2u, second->refCount(true));
    EXPECT_EQ(4u, library->refCount(true));
}

TEST_F(DynSymbolTest, NonThrowingReleaseReturnsWhetherItWasDestroyed)
{
    DynSymbolRef ref = library->symbol("dyn_plain_value");
    const DynSymbol& symbol = *ref;
    symbol.acquireRef();
    EXPECT_FALSE(symbol.releaseRef(std::nothrow)) << "other references remain";
    EXPECT_EQ(2u, symbol.refCount(true));
    symbol.acquireRef();
    ref.clear();
    EXPECT_EQ(3u, library->refCount(true));
    EXPECT_TRUE(symbol.releaseRef(std::nothrow));
    EXPECT_EQ(2u, library->refCount(true));
}

TEST_F(DynSymbolTest, ThrowingReleaseDropsTheReference)
{
    DynSymbolRef ref = library->symbol("dyn_plain_value");
    const DynSymbol& symbol = *ref;
    symbol.acquireRef();
    symbol.releaseRef();
    EXPECT_EQ(2u, symbol.refCount(true));
    symbol.acquireRef();
    ref.clear();
    symbol.releaseRef();
    EXPECT_EQ(2u, library->refCount(true));
}

TEST_F(DynSymbolTest, IsFoundInALinkedLibrary)
{
    const DynSymbolRef base = library->symbol("dyn_base_function");
    EXPECT_EQ(41, reinterpret_cast<int (*)()>(base->func())());
    EXPECT_EQ(library, base->library());
    EXPECT_EQ(42, reinterpret_cast<int (*)()>(library->symbol("dyn_plain_use_of_base")->func())());
}

TEST_F(DynSymbolTest, IsFoundInOtherModulesOfTheProcess)
{
    EXPECT_EQ(0, failureOf("dyn_other_value").error);
    DynLibraryRef other = DynLibrary::load(OTHER);
    DynSymbolRef symbol = library->symbol("dyn_other_value");
    EXPECT_EQ(5, valueOf(symbol));
    EXPECT_EQ(library, symbol->library()) << "it was found through this library";
    EXPECT_NE(symbol, other->symbol("dyn_other_value"));
    EXPECT_EQ(symbol->data(), other->symbol("dyn_other_value")->data());
    other.clear();
    EXPECT_FALSE(isMapped(OTHER)) << "such a symbol keeps only the library that it was found through loaded";
    EXPECT_EQ(symbol, library->symbol("dyn_other_value"));
    symbol.clear();
    EXPECT_EQ("Unable to resolve dynamic symbol \"dyn_other_value\"", failureOf("dyn_other_value").text);
}

TEST_F(DynSymbolTest, OfTheProcessIsFoundThroughALibrary)
{
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "dyn_test_loaded"), library->symbol("dyn_test_loaded")->data());
}

TEST_F(DynSymbolTest, OfALibraryIsFoundThroughTheProcess)
{
    const ConstDynLibraryRef process = DynLibrary::loadProcess();
    EXPECT_EQ(17, valueOf(process->symbol("dyn_plain_value")));
}

TEST_F(DynSymbolTest, EmptyNameThrows)
{
    const Failure failure = failureOf("");
    EXPECT_EQ(0, failure.error);
    EXPECT_EQ("Cannot lookup nil dynamic symbol name.", failure.text);
    EXPECT_EQ(StringVector{"com.kor.dal.nim.sys.DynLoaderMgr.symbol()"}, functionsOf(failure.trace));
}

TEST_F(DynSymbolTest, UndefinedSymbolThrows)
{
    const Failure failure = failureOf("dyn_no_such_symbol");
    EXPECT_EQ(0, failure.error);
    EXPECT_EQ("Unable to resolve dynamic symbol \"dyn_no_such_symbol\"", failure.text);
    EXPECT_EQ(StringVector{"com.kor.dal.nim.sys.DynLoaderMgr.symbol()"}, functionsOf(failure.trace));
    EXPECT_EQ(2u, library->refCount(true));
    EXPECT_EQ(17, valueOf(library->symbol("dyn_plain_value")));
    EXPECT_EQ(0, failureOf("dyn_no_such_symbol").error) << "a repeated lookup fails, too";
    EXPECT_EQ(library, DynLibrary::load(PLAIN)) << "the library remains in the cache";
}

TEST_F(DynSymbolTest, PartOfItsNameFindsNothing)
{
    EXPECT_EQ(0, failureOf("dyn_plain_valu").error);
    const String name("dyn_plain_value\0tail", 20);
    EXPECT_EQ("Unable to resolve dynamic symbol \"dyn_plain_value", failureOf(name).text);
    EXPECT_EQ(2u, library->refCount(true)) << "nothing remains in the cache";
}

TEST_F(DynSymbolTest, NamesWithACommonPrefixAreDifferentSymbols)
{
    // Of equal length and of different lengths, independently of the order in the cache.
    const ConstDynLibraryRef math = DynLibrary::load("libm.so.6");
    std::vector<DynSymbolRef> symbols;
    const StringVector names{"sin", "cos", "tan", "sinh", "cosh", "sinf", "cosf", "exp", "exp2", "expm1"};
    for (const String& name : names) {
        symbols.push_back(math->symbol(name));
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(names[i], symbols[i]->name());
        EXPECT_EQ(symbols[i], math->symbol(names[i]));
        EXPECT_EQ(2u, symbols[i]->refCount(true));
    }
    EXPECT_EQ(12u, math->refCount(true));
    EXPECT_EQ(std::cos(2.0), reinterpret_cast<double (*)(double)>(symbols[1]->func())(2.0));
}

TEST(DynSymbolDeath, LastSymbolUnloadsTheLibrary)
{
    DynSymbolRef symbol = DynLibrary::load(PLAIN)->symbol("dyn_plain_value");
    EXPECT_TRUE(isMapped(PLAIN));
    EXPECT_EQ(2u, symbol->library()->refCount(true) - 1) << "the cache and the symbol";
    symbol.clear();
    EXPECT_FALSE(isMapped(PLAIN));
}

TEST(DynSymbolDeath, TemporaryLibraryAndSymbolAreDestroyed)
{
    EXPECT_EQ(17, valueOf(DynLibrary::load(PLAIN)->symbol("dyn_plain_value")));
    EXPECT_FALSE(isMapped(PLAIN));
}

}
