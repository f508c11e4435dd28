// A program and its plug-ins use the library while they are loaded and unloaded, in every order. Each test
// runs a program and checks its records and its exit status.

#include "Run.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace processtest;
using testing::ElementsAre;
using testing::ElementsAreArray;

const std::string LINKED = PROCESS_LINKED_PROBE;
const std::string FIRST = PROCESS_FIRST;
const std::string SECOND = PROCESS_SECOND;
const std::string FORGETFUL = PROCESS_FORGETFUL;

const Lines STARTS = recordsOfUse("program starts");
const Lines ENDS = recordsOfUse("program ends");
const Lines MAIN_ENDS = {"program sees the main thread end"};
const Lines SPOKEN = {"spoken"};

/** Runs the linked program with these steps, and checks the records between its start and its end. */
void expectLinked(std::vector<std::string> steps, const std::vector<Lines>& parts)
{
    steps.insert(steps.begin(), LINKED);
    const Outcome run(steps);
    EXPECT_EQ(0, run.status) << run.errors;
    // The destructors of the main thread's thread-local objects run before those of static objects.
    EXPECT_THAT(run.records(), ElementsAreArray(join({STARTS, join(parts), ENDS})));
}

TEST(ProcessLinked, UsesTheLibraryFromItsOwnStaticObjects)
{
    expectLinked({}, {MAIN_ENDS});
}

TEST(ProcessLinked, OpensAndClosesAPlugin)
{
    expectLinked({"dlopen", FIRST, "dlclose", FIRST}, {loadOf("first"), unloadOf("first"), MAIN_ENDS});
    expectLinked({"load", FIRST, "say", FIRST, "drop", FIRST},
                 {loadOf("first"), SPOKEN, unloadOf("first"), MAIN_ENDS});
}

TEST(ProcessLinked, PluginMayStayLoadedUntilTheEnd)
{
    expectLinked({"dlopen", FIRST}, {loadOf("first"), MAIN_ENDS, unloadOf("first")});
    expectLinked({"load", FIRST}, {loadOf("first"), MAIN_ENDS, unloadOf("first")});
}

TEST(ProcessLinked, ClosesTwoPluginsInEitherOrder)
{
    for (const char* const open : {"dlopen", "load"}) {
        const char* const close = std::string(open) == "load" ? "drop" : "dlclose";
        expectLinked({open, FIRST, open, SECOND, close, FIRST, close, SECOND},
                     {loadOf("first"), loadOf("second"), unloadOf("first"), unloadOf("second"), MAIN_ENDS});
        expectLinked({open, FIRST, open, SECOND, close, SECOND, close, FIRST},
                     {loadOf("first"), loadOf("second"), unloadOf("second"), unloadOf("first"), MAIN_ENDS});
        expectLinked({open, FIRST, open, SECOND, close, FIRST},
                     {loadOf("first"), loadOf("second"), unloadOf("first"), MAIN_ENDS, unloadOf("second")});
    }
}

TEST(ProcessLinked, LoadsAPluginAgain)
{
    expectLinked({"load", FIRST, "drop", FIRST, "load", FIRST, "say", FIRST, "drop", FIRST},
                 {loadOf("first"), unloadOf("first"), loadOf("first"), SPOKEN, unloadOf("first"), MAIN_ENDS});
}

/** If a plug-in does not unregister its module, the logger keeps only the name, and does not use the module.
 */
TEST(ProcessLinked, LogsAfterAModuleWasUnloadedWithItsPlugin)
{
    const Lines everywhere = {"a by the program's", "a by the global one", "a by the library's",
                              "a by a new one"};
    for (const char* const open : {"dlopen", "load"}) {
        const char* const close = std::string(open) == "load" ? "drop" : "dlclose";
        expectLinked({open, FORGETFUL, close, FORGETFUL, "log", "a", "log", "a", open, FORGETFUL, "log", "a"},
                     {loadOf("forgetful"), unloadOf("forgetful"), everywhere, everywhere, loadOf("forgetful"),
                      everywhere, MAIN_ENDS, unloadOf("forgetful")});
    }
}

TEST(ProcessLinked, ThreadMayEndAfterThePluginThatItUsesWasClosed)
{
    // The dynamic linker keeps the plug-in loaded until the thread has ended.
    const Outcome run({LINKED, "load", FIRST, "see-end", FIRST, "log", "a"});
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_THAT(run.records(), testing::IsSupersetOf({"first sees a thread end", "program sees a thread end",
                                                      "a by the global one"}));
}

TEST(ProcessLinked, LoadsAndUnloadsAPluginWhileOtherThreadsLog)
{
    const Outcome run({LINKED, "while-logging", FIRST});
    EXPECT_EQ(0, run.status) << run.errors;
    const Lines records = run.records();
    EXPECT_EQ(20, std::count(records.begin(), records.end(), "first is loaded"));
    EXPECT_EQ(20, std::count(records.begin(), records.end(), "first is being unloaded"));
    EXPECT_GE(std::count(records.begin(), records.end(), "concurrent"), 20 * 3);
}

#ifdef PROCESS_LIBRARY
const std::string BARE = PROCESS_BARE_PROBE;
const std::string LIBRARY = PROCESS_LIBRARY;

void expectBare(std::vector<std::string> steps, const std::vector<Lines>& parts)
{
    steps.insert(steps.begin(), BARE);
    const Outcome run(steps);
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_THAT(run.records(), ElementsAreArray(join(parts)));
}

TEST(ProcessBare, OpensTheLibraryWithAPlugin)
{
    expectBare({"dlopen", FIRST, "say", FIRST, "dlclose", FIRST},
               {loadOf("first"), SPOKEN, unloadOf("first")});
    expectBare({"dlopen", FIRST}, {loadOf("first"), unloadOf("first")});
}

TEST(ProcessBare, OpensTheLibraryFirst)
{
    expectBare({"dlopen", LIBRARY, "dlopen", FIRST, "dlclose", FIRST, "dlclose", LIBRARY},
               {loadOf("first"), unloadOf("first")});
    expectBare({"dlopen", LIBRARY, "dlopen", FIRST, "dlclose", LIBRARY, "say", FIRST, "dlclose", FIRST},
               {loadOf("first"), SPOKEN, unloadOf("first")});
}

TEST(ProcessBare, OpensTheLibraryLast)
{
    expectBare({"dlopen", FIRST, "dlopen", LIBRARY, "dlclose", FIRST, "dlclose", LIBRARY, "dlopen", FIRST},
               {loadOf("first"), unloadOf("first"), loadOf("first"), unloadOf("first")});
}

TEST(ProcessBare, ClosesTwoPluginsInEitherOrder)
{
    expectBare({"dlopen", FIRST, "dlopen", SECOND, "dlclose", FIRST, "dlclose", SECOND},
               {loadOf("first"), loadOf("second"), unloadOf("first"), unloadOf("second")});
    expectBare({"dlopen", FIRST, "dlopen", SECOND, "dlclose", SECOND, "dlclose", FIRST},
               {loadOf("first"), loadOf("second"), unloadOf("second"), unloadOf("first")});
}

TEST(ProcessBare, UsesTheLibraryAfterItsLastStaticObject)
{
    expectBare({"dlopen", FIRST, "at-end", FIRST}, {loadOf("first"), unloadOf("first"), ENDS});
}

TEST(ProcessBare, ThreadMayEndAfterThePluginThatItUsesWasClosed)
{
    const Outcome run({BARE, "dlopen", FIRST, "see-end", FIRST});
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_THAT(run.records(), testing::Contains("first sees a thread end"));
}

/** The library remains mapped: a thread may end after its last user was unloaded, and then runs its code. */
TEST(ProcessBare, OpensTheLibraryTwiceAndLeavesNothingBehind)
{
    const Outcome run({BARE, "dlopen", LIBRARY, "dlclose", LIBRARY, "count", "keys", "count", "threads",
                       "dlopen", LIBRARY, "dlclose", LIBRARY, "count", "keys", "count", "threads"});
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("", run.errors);
    const Lines counts = linesOf(run.output);
    ASSERT_EQ(4u, counts.size());
    EXPECT_EQ(counts[0], counts[2]);
    EXPECT_EQ(counts[1], counts[3]);
}
#endif

}
