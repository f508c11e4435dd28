#include "DynPlugins.hpp"

#include <gmock/gmock.h>

#include <support/ChildProcess.hpp>

namespace {

using namespace dyntest;
using testing::HasSubstr;

/** The result of a run of the probe. */
struct Probe
{
    explicit Probe(const String& mode)
    {
        const support::ScratchFolder folder;
        support::ChildProcess process({DYN_EXIT_PROBE, mode, OTHER}, folder.path());
        status = process.wait();
        output = process.output();
        errors = process.errors();
    }

    int status = -1;
    String output;
    String errors;
};

TEST(DynExit, ReferencesInStaticStorageUnloadTheirLibraries)
{
    const Probe run("held");
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("Unloaded dynamic library \"" + OTHER + "\"\n"));
}

TEST(DynExit, LibrariesCanBeLoadedWhileTheProcessEnds)
{
    const Probe run("late");
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("early 5\nlate 5\n", run.output);
}

TEST(DynExit, ThreadsThatLoadDoNotBlockTheExit)
{
    for (int i = 0; i < 5; ++i) {
        const Probe run("threads");
        EXPECT_EQ(0, run.status) << run.errors;
    }
}

}
