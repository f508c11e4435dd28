// Plug-ins that bring a second copy of the library are rejected.

#include "DynPlugins.hpp"

#include <filesystem>
#include <iostream>
#include <thread>

#include <pthread.h>

#include <qv/pmx/library.h>
#include <support/Sanitizers.hpp>

namespace {

using namespace dyntest;
using support::ScratchFolder;

const String COPIED = DYN_COPIED;
const String COPIED_HIDDEN = DYN_COPIED_HIDDEN;
const String COPIED_LIBRARY = DYN_COPIED_LIBRARY;
const String NEEDING = DYN_NEEDING;

Failure load(const String& name)
{
    return Failure([&name] { DynLibrary::load(name); });
}

/** Returns the message of a load of `name` that is rejected because of `module`. */
String rejection(const String& name, const String& module)
{
    return "Unable to load \"" + name + "\": Exec format error, " + module
           + ": contains a second copy of dalnim; link plug-ins with dalnim::plugin)";
}

TEST(DynCopy, PluginWithACopyOfTheLibraryIsRejected)
{
    const Failure failure = load(COPIED);
    EXPECT_EQ(8, failure.error);
    EXPECT_EQ(rejection(COPIED, COPIED), failure.text);
    EXPECT_EQ(
        (StringVector{"com.kor.dal.nim.sys.DynLoaderMgr.image()", "com.kor.dal.nim.sys.DynLibrary.load()"}),
        functionsOf(failure.trace));
}

TEST(DynCopy, PluginThatHidesItsCopyIsRejected)
{
    const Failure failure = load(COPIED_HIDDEN);
    EXPECT_EQ(8, failure.error);
    EXPECT_EQ(rejection(COPIED_HIDDEN, COPIED_HIDDEN), failure.text);
}

TEST(DynCopy, InitialisersOfARejectedPluginDoNotRun)
{
    Hooks hooks;
    int calls = 0;
    hooks.loaded = [&calls] { ++calls; };
    for (const String& plugin : {COPIED, COPIED_HIDDEN, COPIED}) {
        EXPECT_EQ(8, load(plugin).error);
        EXPECT_FALSE(isMapped(plugin));
    }
    EXPECT_EQ(0, calls);
}

TEST(DynCopy, IsCountedAsAFailedLoad)
{
    const std::uint64_t before = DynLoaderMgr::statistics().failedLoads;
    EXPECT_EQ(8, load(COPIED).error);
    EXPECT_EQ(before + 1, DynLoaderMgr::statistics().failedLoads);
}

/** A child process, in which the copy remains. */
TEST(DynCopyDeathTest, PluginWhoseDependencyHasACopyIsRejectedByEachLoad)
{
    if (support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the address sanitizer ends a process that initialises a second copy";
    }
    EXPECT_EXIT(
        {
            // On a thread whose end runs destructors of thread-specific keys.
            std::thread([] {
                for (int i = 0; i < 2; ++i) {
                    const Failure failure = load(NEEDING);
                    if (failure.error != 8 || failure.text != rejection(NEEDING, COPIED_LIBRARY)) {
                        std::cerr << failure.error << ": " << failure.text << '\n';
                        _exit(7);
                    }
                }
            }).join();
            // Others are loaded as before.
            if (valueOf(DynLibrary::load(OTHER)->symbol("dyn_other_value")) != 5) {
                _exit(8);
            }
            exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(DynCopy, PluginThatUsesTheLibraryOfTheProcessIsLoaded)
{
    const ConstDynLibraryRef library = DynLibrary::load(LOGGING);
    EXPECT_NE(nullptr, library->symbol("dyn_logging_say")->func());
}

#ifdef DYN_LIBRARY
TEST(DynCopy, LibraryItselfIsLoaded)
{
    const ConstDynLibraryRef library = DynLibrary::load(DYN_LIBRARY);
    EXPECT_EQ(reinterpret_cast<void (*)()>(&qv_si_library_nload),
              library->symbol("qv_si_library_nload")->func());
}

TEST(DynCopy, OtherFileOfTheLibraryIsRejected)
{
    const ScratchFolder folder;
    const String file = folder.file("libdalnim.so.1");
    std::filesystem::copy_file(DYN_LIBRARY, file);
    const Failure failure = load(file);
    EXPECT_EQ(8, failure.error);
    EXPECT_EQ(rejection(file, file), failure.text);
}
#endif

TEST(DynCopy, CancelledThreadLoadsAPlugin)
{
    // The check reads the file, with calls that are cancellation points.
    bool isLoaded = false;
    std::thread([&isLoaded] {
        pthread_cancel(pthread_self());
        const ConstDynLibraryRef library = DynLibrary::load(OTHER);
        int old = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old);
        isLoaded = valueOf(library->symbol("dyn_other_value")) == 5;
    }).join();
    EXPECT_TRUE(isLoaded);
}

}
