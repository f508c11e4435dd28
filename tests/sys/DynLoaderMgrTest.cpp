#include "DynPlugins.hpp"

#include <type_traits>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <qv/Threads.hpp>

namespace {

using namespace dyntest;
using com::kor::dal::nim::mem::RcoRef;
using com::kor::dal::nim::mem::RefCntObject;
using com::kor::dal::nim::sys::LoaderStatistics;
using qvtest::Caller;
using qvtest::Gate;

static_assert(std::is_base_of_v<RefCntObject, DynLoaderMgr>);
static_assert(std::is_same_v<DynLoaderMgrRef, RcoRef<DynLoaderMgr>>);
static_assert(!std::is_default_constructible_v<DynLoaderMgr>);
static_assert(!std::is_copy_constructible_v<DynLoaderMgr>);
static_assert(!std::is_copy_assignable_v<DynLoaderMgr>);
static_assert(!std::is_destructible_v<DynLoaderMgr>);
static_assert(std::has_virtual_destructor_v<DynLoaderMgr>);

TEST(DynLoaderMgr, ManagerReturnsTheSameObject)
{
    const DynLoaderMgrRef manager = DynLoaderMgr::manager();
    EXPECT_TRUE(!!manager);
    EXPECT_EQ(manager, DynLoaderMgr::manager());
    EXPECT_EQ(2u, manager->refCount(true)) << "its own reference and this one";
    EXPECT_EQ(3u, DynLoaderMgr::manager()->refCount(true));
}

TEST(DynLoaderMgr, EachLibraryHasAReferenceToIt)
{
    const DynLoaderMgrRef manager = DynLoaderMgr::manager();
    ConstDynLibraryRef plain = DynLibrary::load(PLAIN);
    EXPECT_EQ(3u, manager->refCount(true));
    ConstDynLibraryRef other = DynLibrary::load(OTHER);
    EXPECT_EQ(4u, manager->refCount(true));
    const ConstDynLibraryRef again = DynLibrary::load(OTHER);
    const DynSymbolRef symbol = other->symbol("dyn_other_value");
    EXPECT_EQ(4u, manager->refCount(true));
    plain.clear();
    EXPECT_EQ(3u, manager->refCount(true));
}

TEST(DynLoaderMgr, ReturnsTheImageAndItsSymbols)
{
    DynLoaderMgrRef manager = DynLoaderMgr::manager();
    const ConstDynLibraryRef library = manager->image(PLAIN, true);
    EXPECT_EQ(library, DynLibrary::load(PLAIN));
    const DynSymbolRef symbol = manager->symbol(library, "dyn_plain_value");
    EXPECT_EQ(17, valueOf(symbol));
    EXPECT_EQ(symbol, library->symbol("dyn_plain_value"));
}

TEST(DynLoaderMgr, SymbolWithoutALibraryThrowsEINVAL)
{
    const DynLoaderMgrRef manager = DynLoaderMgr::manager();
    const Failure failure([&manager] { manager->symbol(ConstDynLibraryRef(), "dyn_plain_value"); });
    EXPECT_EQ(22, failure.error);
    EXPECT_EQ("Attempt to dereference null reference.", failure.text);
    EXPECT_EQ("Cannot lookup nil dynamic symbol name.",
              Failure([&manager] { manager->symbol(ConstDynLibraryRef(), ""); }).text)
        << "the name is checked first";
}

TEST(DynLoaderMgr, CheckRefsKeepsReferencedObjects)
{
    const DynLoaderMgrRef manager = DynLoaderMgr::manager();
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
    const DynSymbolRef symbol = library->symbol("dyn_plain_value");
    EXPECT_FALSE(manager->checkRefs(*library));
    EXPECT_FALSE(manager->checkRefs(*symbol));
    EXPECT_EQ(symbol, library->symbol("dyn_plain_value"));
    EXPECT_EQ(library, DynLibrary::load(PLAIN));
}

TEST(DynLoaderMgr, CheckRefsDestroysObjectsThatOnlyTheCacheReferences)
{
    const DynLoaderMgrRef manager = DynLoaderMgr::manager();
    ConstDynLibraryRef libraryRef = DynLibrary::load(PLAIN);
    DynSymbolRef symbolRef = libraryRef->symbol("dyn_plain_value");
    const DynLibrary& library = *libraryRef;
    const DynSymbol& symbol = *symbolRef;
    library.acquireRef();
    symbol.acquireRef();
    libraryRef.clear();
    symbolRef.clear();
    // The release of the base class does not check the cache.
    library.RefCntObject::releaseRef();
    EXPECT_FALSE(manager->checkRefs(library)) << "the symbol references it";
    symbol.RefCntObject::releaseRef();
    EXPECT_TRUE(isMapped(PLAIN));
    EXPECT_TRUE(manager->checkRefs(symbol));
    EXPECT_FALSE(isMapped(PLAIN)) << "the library is unloaded with it";

    libraryRef = DynLibrary::load(OTHER);
    const DynLibrary& other = *libraryRef;
    other.acquireRef();
    libraryRef.clear();
    other.RefCntObject::releaseRef();
    EXPECT_TRUE(isMapped(OTHER));
    EXPECT_TRUE(manager->checkRefs(other));
    EXPECT_FALSE(isMapped(OTHER));
}

TEST(DynLoaderMgr, StatisticsCountLoadsUnloadsAndFailures)
{
    const LoaderStatistics before = DynLoaderMgr::statistics();
    {
        const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
        const ConstDynLibraryRef again = DynLibrary::load(PLAIN);
        EXPECT_EQ(before.loaded + 1, DynLoaderMgr::statistics().loaded) << "the second one is in the cache";
        EXPECT_EQ(before.unloaded, DynLoaderMgr::statistics().unloaded);
    }
    EXPECT_EQ(before.unloaded + 1, DynLoaderMgr::statistics().unloaded);
    EXPECT_ANY_THROW(DynLibrary::load("/nowhere/at/all.so"));
    EXPECT_EQ(before.loaded + 1, DynLoaderMgr::statistics().loaded);
    EXPECT_EQ(before.failedLoads + 1, DynLoaderMgr::statistics().failedLoads);
    EXPECT_EQ(before.failedUnloads, DynLoaderMgr::statistics().failedUnloads);
}

// Calls of a library's static constructors and destructors, on the thread that loads and releases it.

TEST(DynLoaderRecursion, InitialiserLoadsAnotherLibrary)
{
    const DynSymbolRef value = DynLibrary::load(LOADING)->symbol("dyn_loading_value");
    EXPECT_TRUE(isMapped(OTHER));
    EXPECT_EQ(105, reinterpret_cast<int (*)()>(value->func())());
}

TEST(DynLoaderRecursion, DestructorOfALibraryReleasesItsReferences)
{
    DynLibrary::load(LOADING);
    EXPECT_FALSE(isMapped(LOADING));
    EXPECT_FALSE(isMapped(OTHER));
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true));
}

TEST(DynLoaderRecursion, InitialiserLoadsItsOwnLibrary)
{
    Hooks hooks;
    ConstDynLibraryRef inner;
    hooks.loaded = [&inner] {
        inner = DynLibrary::load(HOOKED, false);
        EXPECT_EQ(3, valueOf(inner->symbol("dyn_hooked_value")));
    };
    ConstDynLibraryRef outer = DynLibrary::load(HOOKED, true);
    EXPECT_EQ(inner, outer) << "each name has one object";
    EXPECT_EQ(3u, outer->refCount(true));
    outer.clear();
    EXPECT_TRUE(isMapped(HOOKED));
    inner.clear();
    EXPECT_FALSE(isMapped(HOOKED)) << "each load has been undone";
}

TEST(DynLoaderRecursion, InitialiserLoadsAndReleasesItsOwnLibrary)
{
    Hooks hooks;
    int loads = 0;
    hooks.loaded = [&loads] {
        ++loads;
        EXPECT_EQ(3, valueOf(DynLibrary::load(HOOKED)->symbol("dyn_hooked_value")));
    };
    {
        const ConstDynLibraryRef library = DynLibrary::load(HOOKED);
        EXPECT_EQ(2u, library->refCount(true));
        EXPECT_EQ(3, valueOf(library->symbol("dyn_hooked_value")));
        EXPECT_EQ(1, loads);
    }
    EXPECT_FALSE(isMapped(HOOKED));
}

TEST(DynLoaderRecursion, InitialiserFailsToLoad)
{
    Hooks hooks;
    Failure failure([] {});
    hooks.loaded = [&failure] { failure = Failure([] { DynLibrary::load("/no/such/library.so"); }); };
    const ConstDynLibraryRef library = DynLibrary::load(HOOKED);
    EXPECT_EQ(2, failure.error);
    EXPECT_EQ(3, valueOf(library->symbol("dyn_hooked_value")));
}

TEST(DynLoaderRecursion, DestructorOfALibraryLoadsAnother)
{
    Hooks hooks;
    ConstDynLibraryRef other;
    hooks.unloaded = [&other] {
        other = DynLibrary::load(OTHER);
        EXPECT_EQ(5, valueOf(other->symbol("dyn_other_value")));
    };
    DynLibrary::load(HOOKED)->symbol("dyn_hooked_value");
    EXPECT_FALSE(isMapped(HOOKED));
    EXPECT_TRUE(isMapped(OTHER));
    EXPECT_EQ(2u, other->refCount(true));
}

TEST(DynLoaderRecursion, DestructorOfALibraryReleasesOthers)
{
    Hooks hooks;
    DynSymbolRef other = DynLibrary::load(OTHER)->symbol("dyn_other_value");
    ConstDynLibraryRef plain = DynLibrary::load(PLAIN);
    hooks.unloaded = [&] {
        other.clear();
        plain.clear();
        EXPECT_EQ(3u, DynLoaderMgr::manager()->refCount(true)) << "this library is still being unloaded";
    };
    DynLibrary::load(HOOKED)->symbol("dyn_hooked_value");
    EXPECT_FALSE(!!other);
    EXPECT_FALSE(isMapped(HOOKED));
    EXPECT_FALSE(isMapped(OTHER));
    EXPECT_FALSE(isMapped(PLAIN));
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true));
}

TEST(DynLoaderRecursion, ThreadThatReleasesTheLastReferenceUnloads)
{
    Hooks hooks;
    pid_t unloader = 0;
    hooks.unloaded = [&unloader] { unloader = gettid(); };
    DynSymbolRef symbol = DynLibrary::load(HOOKED)->symbol("dyn_hooked_value");
    pid_t releaser = 0;
    std::thread([&] {
        releaser = gettid();
        symbol.clear();
        EXPECT_EQ(releaser, unloader) << "unloaded immediately, on the releasing thread";
    }).join();
    EXPECT_NE(0, unloader);
    EXPECT_NE(getpid(), unloader);
}

TEST(DynLoaderLock, IsHeldWhileALibraryLoads)
{
    Hooks hooks;
    Gate inside;
    Gate leave;
    hooks.loaded = [&] {
        inside.open();
        leave.pass();
    };
    ConstDynLibraryRef other = DynLibrary::load(OTHER);
    DynSymbolRef symbol = other->symbol("dyn_other_value");
    EXPECT_EQ(5, valueOf(symbol));
    Caller loader([] { DynLibrary::load(HOOKED); });
    inside.pass();
    const DynLibrary& library = *other;
    library.acquireRef();
    // A release that leaves other references does not block; one that may unload the library does.
    Caller([&other] { other.clear(); }).join();
    Caller releaser([&symbol] { symbol.clear(); });
    EXPECT_TRUE(releaser.awaitAsleep());
    Caller reader([&library] { library.symbol("dyn_other_value"); });
    EXPECT_TRUE(reader.awaitAsleep());
    leave.open();
    loader.join();
    releaser.join();
    reader.join();
    library.releaseRef();
}

TEST(DynLoaderLock, ForkFindsTheLockFree)
{
    // The child must not inherit the lock of a thread that it does not have.
    Hooks hooks;
    Gate inside;
    Gate leave;
    hooks.loaded = [&] {
        inside.open();
        leave.pass();
    };
    ConstDynLibraryRef held;
    Caller loader([&held] { held = DynLibrary::load(HOOKED); });
    inside.pass();
    int status = -1;
    Caller forker([&status] {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            const bool right = valueOf(DynLibrary::load(HOOKED)->symbol("dyn_hooked_value")) == 3
                               && valueOf(DynLibrary::load(OTHER)->symbol("dyn_other_value")) == 5;
            _exit(right ? 42 : 1);
        }
        waitpid(child, &status, 0);
    });
    EXPECT_TRUE(forker.awaitAsleep());
    leave.open();
    forker.join();
    loader.join();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(42, WEXITSTATUS(status));
    EXPECT_EQ(3, valueOf(held->symbol("dyn_hooked_value")));
}

TEST(DynLoaderLock, InitialiserMayFork)
{
    Hooks hooks;
    int status = -1;
    pid_t child = -1;
    hooks.loaded = [&] {
        child = fork();
        if (child != 0) {
            waitpid(child, &status, 0);
        }
    };
    {
        const ConstDynLibraryRef library = DynLibrary::load(HOOKED);
        if (child == 0) {
            // The child also returns from the load, and continues.
            alarm(20);
            hooks.loaded = nullptr;
            const bool right = valueOf(library->symbol("dyn_hooked_value")) == 3
                               && valueOf(DynLibrary::load(OTHER)->symbol("dyn_other_value")) == 5;
            _exit(right ? 42 : 1);
        }
    }
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(42, WEXITSTATUS(status));
    EXPECT_FALSE(isMapped(HOOKED));
}

}
