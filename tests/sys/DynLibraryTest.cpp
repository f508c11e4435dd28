#include "DynPlugins.hpp"

#include <type_traits>

#include <dlfcn.h>

#include <log/Loggers.hpp>

// A private member: only an explicit instantiation may name it.
namespace dyntest {

namespace {

bool globalOf(const DynLibrary& library);

template <bool DynLibrary::*Field>
struct Exposed
{
    friend bool globalOf(const DynLibrary& library)
    {
        return library.*Field;
    }
};

template struct Exposed<&DynLibrary::global>;

}

}

namespace {

using namespace dyntest;
using com::kor::dal::nim::mem::ConstRcoRef;
using com::kor::dal::nim::mem::RefCntObject;
using logtest::DefaultLogger;

static_assert(std::is_base_of_v<RefCntObject, DynLibrary>);
static_assert(std::is_same_v<ConstDynLibraryRef, ConstRcoRef<DynLibrary>>);
static_assert(std::is_same_v<DynLibraryRef, ConstRcoRef<DynLibrary>>);
static_assert(!std::is_default_constructible_v<DynLibrary>);
static_assert(!std::is_copy_constructible_v<DynLibrary>);
static_assert(!std::is_copy_assignable_v<DynLibrary>);
static_assert(!std::is_destructible_v<DynLibrary>);
static_assert(std::is_same_v<decltype(DynLibrary::DEFAULT_LOOKUP_SCOPE_GLOBAL), bool>);

/** Returns another name of the same file. */
String otherNameOf(const String& file)
{
    return "/." + file;
}

/** Changes the class constant until the end of the scope. */
class LookupScope
{
public:
    explicit LookupScope(bool global)
    {
        DynLibrary::DEFAULT_LOOKUP_SCOPE_GLOBAL = global;
    }
    LookupScope(const LookupScope&) = delete;
    LookupScope& operator=(const LookupScope&) = delete;
    ~LookupScope()
    {
        DynLibrary::DEFAULT_LOOKUP_SCOPE_GLOBAL = true;
    }
};

TEST(DynLibrary, ReturnsItsName)
{
    EXPECT_STREQ("DynLibrary", DynLibrary::CLASS_NAME);
    EXPECT_EQ(PLAIN, DynLibrary::load(PLAIN)->name());
}

TEST(DynLibrary, StaysLoadedWhileItIsReferenced)
{
    EXPECT_FALSE(isMapped(PLAIN));
    {
        const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
        EXPECT_TRUE(isMapped(PLAIN));
        EXPECT_TRUE(isMapped(BASE));
    }
    EXPECT_FALSE(isMapped(PLAIN));
    EXPECT_FALSE(isMapped(BASE));
}

TEST(DynLibrary, CanBeLoadedAgainAfterItsUnload)
{
    for (int i = 0; i < 3; ++i) {
        const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
        int& value = *static_cast<int*>(library->symbol("dyn_plain_value")->data());
        EXPECT_EQ(17, value);
        value = 1;
    }
}

TEST(DynLibrary, SameNameReturnsTheSameObject)
{
    const ConstDynLibraryRef first = DynLibrary::load(PLAIN);
    const ConstDynLibraryRef second = DynLibrary::load(PLAIN, false);
    EXPECT_EQ(first, second);
    EXPECT_EQ(3u, first->refCount(true)) << "the cache and these two references";
    EXPECT_EQ(3u, first->refCount(false)) << "a library has no bias";
}

TEST(DynLibrary, TwoNamesOfOneFileReturnTwoObjects)
{
    ConstDynLibraryRef first = DynLibrary::load(PLAIN);
    const ConstDynLibraryRef second = DynLibrary::load(otherNameOf(PLAIN));
    EXPECT_NE(first, second);
    EXPECT_EQ(PLAIN, first->name());
    EXPECT_EQ("/." + PLAIN, second->name());
    EXPECT_EQ(2u, first->refCount(true));
    EXPECT_EQ(2u, second->refCount(true));
    EXPECT_EQ(first->symbol("dyn_plain_value")->data(), second->symbol("dyn_plain_value")->data());
    EXPECT_NE(first->symbol("dyn_plain_value"), second->symbol("dyn_plain_value"));
    first.clear();
    EXPECT_TRUE(isMapped(PLAIN)) << "the entry of the other name has loaded it, too";
}

TEST(DynLibrary, LiteralIsTheNameAndNotAFlag)
{
    EXPECT_EQ("libm.so.6", DynLibrary::load("libm.so.6")->name());
    EXPECT_NE(nullptr, DynLibrary::load("libm.so.6", false)->symbol("cos")->func());
}

TEST(DynLibrary, NameOfTheProcessIsEmpty)
{
    const ConstDynLibraryRef process = DynLibrary::loadProcess();
    EXPECT_EQ("", process->name());
    EXPECT_EQ(process, DynLibrary::load(""));
    EXPECT_EQ(process, DynLibrary::loadProcess(false));
    EXPECT_EQ(process, DynLoaderMgr::manager()->image("", false));
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "dyn_test_loaded"), process->symbol("dyn_test_loaded")->data());
}

TEST(DynLibrary, SymbolsAreLoadedIntoALocalScope)
{
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN, true);
    EXPECT_EQ(nullptr, dlsym(RTLD_DEFAULT, "dyn_plain_value")) << "the argument is not passed to dlopen()";
}

TEST(DynLibraryGlobal, IsRecordedAsRequested)
{
    EXPECT_TRUE(DynLibrary::DEFAULT_LOOKUP_SCOPE_GLOBAL);
    EXPECT_TRUE(globalOf(*DynLibrary::load(PLAIN, true)));
    EXPECT_TRUE(globalOf(*DynLibrary::load(PLAIN)));
    EXPECT_FALSE(globalOf(*DynLibrary::load(PLAIN, false)));
    EXPECT_TRUE(globalOf(*DynLibrary::loadProcess(true)));
    EXPECT_TRUE(globalOf(*DynLibrary::loadProcess()));
    EXPECT_FALSE(globalOf(*DynLibrary::loadProcess(false)));
}

TEST(DynLibraryGlobal, IsNeverReset)
{
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN, false);
    EXPECT_FALSE(globalOf(*library));
    DynLibrary::load(PLAIN, false);
    EXPECT_FALSE(globalOf(*library));
    DynLibrary::load(PLAIN, true);
    EXPECT_TRUE(globalOf(*library));
    DynLibrary::load(PLAIN, false);
    EXPECT_TRUE(globalOf(*library));
}

TEST(DynLibraryGlobal, DefaultLookupScopeDisablesItForAllCallers)
{
    const LookupScope scope(false);
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN, true);
    EXPECT_FALSE(globalOf(*library));
    EXPECT_FALSE(globalOf(*DynLibrary::loadProcess(true)));
    DynLoaderMgr::manager()->image(PLAIN, true);
    EXPECT_TRUE(globalOf(*library)) << "the manager does not evaluate it";
}

TEST(DynLibraryRelease, NonThrowingReleaseReturnsWhetherTheLibraryWasDestroyed)
{
    ConstDynLibraryRef first = DynLibrary::load(PLAIN);
    const DynLibrary& library = *first;
    library.acquireRef();
    EXPECT_EQ(3u, library.refCount(true));
    EXPECT_FALSE(library.releaseRef(std::nothrow)) << "other references remain";
    EXPECT_EQ(2u, library.refCount(true));
    library.acquireRef();
    first.clear();
    EXPECT_TRUE(isMapped(PLAIN));
    EXPECT_TRUE(library.releaseRef(std::nothrow));
    EXPECT_FALSE(isMapped(PLAIN));
}

TEST(DynLibraryRelease, ThrowingReleaseDropsTheLastReference)
{
    ConstDynLibraryRef first = DynLibrary::load(PLAIN);
    const DynLibrary& library = *first;
    library.acquireRef();
    library.releaseRef();
    EXPECT_EQ(2u, library.refCount(true));
    library.acquireRef();
    first.clear();
    library.releaseRef();
    EXPECT_FALSE(isMapped(PLAIN));
}

TEST(DynLibraryRelease, AssignmentUnloadsTheOldLibrary)
{
    ConstDynLibraryRef ref = DynLibrary::load(PLAIN);
    ref = DynLibrary::load(OTHER);
    EXPECT_FALSE(isMapped(PLAIN));
    EXPECT_TRUE(isMapped(OTHER));
    ref = nullptr;
    EXPECT_FALSE(isMapped(OTHER));
}

TEST(DynLibraryRelease, SymbolKeepsItsLibraryLoaded)
{
    ConstDynLibraryRef library = DynLibrary::load(PLAIN);
    DynSymbolRef symbol = library->symbol("dyn_plain_function");
    EXPECT_EQ(3u, library->refCount(true)) << "the cache, the symbol and this reference";
    library.clear();
    EXPECT_TRUE(isMapped(PLAIN));
    EXPECT_EQ(20, reinterpret_cast<int (*)(int)>(symbol->func())(3));
    symbol.clear();
    EXPECT_FALSE(isMapped(PLAIN));
}

TEST(DynLibraryRelease, LastOfSeveralSymbolsUnloadsTheLibrary)
{
    DynSymbolRef value = DynLibrary::load(PLAIN)->symbol("dyn_plain_value");
    DynSymbolRef function = value->library()->symbol("dyn_plain_function");
    EXPECT_EQ(value->library(), function->library());
    value.clear();
    EXPECT_TRUE(isMapped(PLAIN));
    function.clear();
    EXPECT_FALSE(isMapped(PLAIN));
}

TEST(DynLibraryLog, UnloadIsLogged)
{
    DefaultLogger logger;
    logger->setSeverity(logtest::log::Severity_INFO);
    logger.taken();
    DynLibrary::load(PLAIN);
    EXPECT_EQ("com.kor.dal.nim INFO DynLibrary : Unloaded dynamic library \"" + PLAIN + "\"\n",
              logger.taken());
    DynLibrary::loadProcess();
    EXPECT_EQ("com.kor.dal.nim INFO DynLibrary : Unloaded dynamic library \"\"\n", logger.taken());
}

TEST(DynLibraryLog, UnloadIsNotLoggedAtTheDefaultThreshold)
{
    DefaultLogger logger;
    logger.taken();
    DynLibrary::load(PLAIN);
    EXPECT_EQ("", logger.taken());
}

TEST(DynLibraryLog, ReleaseThatDoesNotUnloadIsNotLogged)
{
    DefaultLogger logger;
    logger->setSeverity(logtest::log::Severity_TRACE);
    logger.taken();
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
    DynLibrary::load(PLAIN)->symbol("dyn_plain_value");
    EXPECT_EQ("", logger.taken());
}

TEST(DynLibraryLog, ModuleOfAPluginIsRegisteredWhileItIsLoaded)
{
    DefaultLogger logger;
    const auto names = [&logger] {
        logtest::StringColl modules;
        logger->getModulesRegisteredStatic(modules);
        return std::count(modules.begin(), modules.end(), "dyn.logging");
    };
    EXPECT_EQ(0, names());
    {
        const DynSymbolRef say = DynLibrary::load(LOGGING)->symbol("dyn_logging_say");
        EXPECT_EQ(1, names());
        logger.taken();
        reinterpret_cast<void (*)(const char*)>(say->func())("hello");
        EXPECT_EQ("dyn.logging NOTICE logging.cpp : hello\n", logger.taken());
        logger->setSeverity(logtest::log::Severity_INFO);
        logger.taken();
    }
    EXPECT_FALSE(isMapped(LOGGING));
    EXPECT_EQ("dyn.logging NOTICE logging.cpp : going\n"
              "com.kor.dal.nim INFO DynLibrary : Unloaded dynamic library \""
                  + LOGGING + "\"\n",
              logger.taken());
    EXPECT_EQ(0, names());
    DynLibrary::load(LOGGING);
    EXPECT_EQ(0, names());
}

}
