#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "support/Files.hpp"

#include <dalnim/io/FsOps.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace {

using namespace faults;
using namespace com::kor::dal::nim::io;
using com::kor::dal::nim::sys::system_error;

class FsOpsFault : public testing::Test
{
protected:
    FsOpsFault() : path(std::filesystem::canonical(folder.path()).string()) {}

    support::ScratchFolder folder;
    const String path;
};

TEST_F(FsOpsFault, FullPathIsReturnedOrThrows)
{
    const String quoted = " '" + path + "/' ";
    for (const String& wanted : {path, quoted}) {
        EXPECT_GE(
            walkAllocations([] { return String(); }, [&](String& found) { fullPath(wanted).swap(found); },
                            [&](String& found, bool done) { EXPECT_EQ(done ? path : String(), found); }),
            1u);
    }
}

TEST_F(FsOpsFault, UnresolvableFullPathIsNamedInTheError)
{
    EXPECT_EQ("5 Error resolving '" + path + "': Input/output error",
              failureOf(Call::REALPATH, EIO, [this] { fullPath(path); }));
    EXPECT_EQ("40 Error resolving '" + path + "': Too many levels of symbolic links",
              failureOf(Call::REALPATH, ELOOP, [this] { fullPath(path); }));
    EXPECT_EQ("12 Error resolving '" + path + "': Cannot allocate memory",
              failureOf(Call::REALPATH, ENOMEM, [this] { fullPath(path); }));
    EXPECT_EQ(path, fullPath(path));
}

TEST_F(FsOpsFault, PathThatCannotBeExaminedIsNamedInTheError)
{
    EXPECT_EQ("5 Error checking access on '" + path + "': Input/output error",
              failureOf(Call::STAT, EIO, [this] { pathStat(path); }));
    EXPECT_EQ("", failureOf(Call::STAT, EACCES, [this] { EXPECT_EQ(-1, pathStat(path)); }));
    EXPECT_EQ("13 Error checking access on '" + path + "': Permission denied",
              failureOf(Call::STAT, EACCES, [this] { pathStat(path, 0, true); }));
    EXPECT_EQ("", failureOf(Call::STAT, ENOENT, [this] { EXPECT_EQ(0, pathStat(path)); }));
    EXPECT_EQ(63, pathStat(path));
}

TEST_F(FsOpsFault, RightThatCannotBeDeterminedIsDenied)
{
    for (const int error : {EACCES, EIO, ENOMEM, ELOOP}) {
        EXPECT_EQ("", failureOf(Call::ACCESS, error, [this] { EXPECT_EQ(3, pathStat(path)); }));
    }
    EXPECT_EQ(63, pathStat(path));
}

TEST_F(FsOpsFault, PathStateIsReturnedOrThrows)
{
    EXPECT_GE(walkAllocations([] { return 0; }, [this](int& state) { state = pathStat(path); },
                              [](int state, bool done) { EXPECT_EQ(done ? 63 : 0, state); }),
              1u);
}

TEST_F(FsOpsFault, FailureMayRunOutOfMemory)
{
    const String missing = path + "/none";
    WalkOptions options;
    options.named = [&](const std::exception& failure) {
        return failure.what() == "Error resolving '" + missing + "': No such file or directory";
    };
    // It never succeeds: each attempt throws one of the two exceptions, and the last one its own.
    int named = 0;
    EXPECT_GE(walkAllocations([] { return 0; },
                              [&](int&) {
                                  try {
                                      fullPath(missing);
                                  } catch (const system_error& failure) {
                                      named += options.named(failure) ? 1 : 0;
                                      if (!options.named(failure)) {
                                          throw;
                                      }
                                  }
                              },
                              [](int, bool) {}, options),
              3u);
    EXPECT_GE(named, 2);
}

}
