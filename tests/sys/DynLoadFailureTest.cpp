#include "DynPlugins.hpp"

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include <qv/Scratch.hpp>
#include <support/StandardLibrary.hpp>

namespace {

using namespace dyntest;
using support::ScratchFolder;

/** Returns the failure that loading `name` throws. */
Failure load(const String& name)
{
    return Failure([&name] { DynLibrary::load(name); });
}

TEST(DynLoadFailure, MissingFileIsReported)
{
    const Failure failure = load("/no/such/library.so");
    EXPECT_EQ(2, failure.error);
    EXPECT_EQ("Unable to load \"/no/such/library.so\": No such file or directory, "
              "/no/such/library.so: cannot open shared object file: No such file or directory)",
              failure.text);
}

TEST(DynLoadFailure, NameThatIsNotOnTheSearchPathIsReported)
{
    const Failure failure = load("libno_such.so.1");
    EXPECT_EQ(2, failure.error);
    EXPECT_EQ("Unable to load \"libno_such.so.1\": No such file or directory, "
              "libno_such.so.1: cannot open shared object file: No such file or directory)",
              failure.text);
}

TEST(DynLoadFailure, ExceptionHasTheStackTraceOfTheCall)
{
    EXPECT_EQ(
        (StringVector{"com.kor.dal.nim.sys.DynLoaderMgr.image()", "com.kor.dal.nim.sys.DynLibrary.load()"}),
        functionsOf(load("/no/such/library.so").trace));
}

TEST(DynLoadFailure, FileThatIsNoLibraryIsReported)
{
    const ScratchFolder folder;
    const String file = folder.file("garbage.so");
    support::writeFile(file, String(4096, 'x'));
    const Failure failure = load(file);
    EXPECT_EQ(8, failure.error);
    EXPECT_EQ("Unable to load \"" + file + "\": Exec format error, " + file + ": invalid ELF header)",
              failure.text);
}

TEST(DynLoadFailure, TruncatedFileIsReported)
{
    const ScratchFolder folder;
    const String file = folder.file("short.so");
    support::writeFile(file, "\177ELF");
    const Failure failure = load(file);
    EXPECT_EQ(8, failure.error);
    EXPECT_EQ("Unable to load \"" + file + "\": Exec format error, " + file + ": file too short)",
              failure.text);
}

TEST(DynLoadFailure, DirectoryIsReported)
{
    const ScratchFolder folder;
    const Failure failure = load(folder.path());
    EXPECT_EQ(21, failure.error);
    EXPECT_EQ("Unable to load \"" + folder.path() + "\": Is a directory, " + folder.path()
                  + ": cannot read file data: Is a directory)",
              failure.text);
}

TEST(DynLoadFailure, NameWithANulIsReported)
{
    // The system would use the part before the null character, which is the name of the process here.
    const Failure failure = load(String("\0.so", 4));
    EXPECT_EQ(2, failure.error);
    EXPECT_EQ("Unable to load \"", failure.text) << "up to the null character";
}

TEST(DynLoadFailure, MissingDependencyIsReported)
{
    const ScratchFolder folder;
    const String file = folder.file("plain.so");
    String content = support::readFile(PLAIN);
    // Of the same length, so that the file remains valid.
    std::size_t at = 0;
    while ((at = content.find("libdyn_base.so")) != String::npos) {
        content.replace(at, 14, "libdyn_gone.so");
    }
    support::writeFile(file, content);
    const Failure failure = load(file);
    EXPECT_EQ(2, failure.error);
    EXPECT_EQ("Unable to load \"" + file
                  + "\": No such file or directory, "
                    "libdyn_gone.so: cannot open shared object file: No such file or directory)",
              failure.text);
    EXPECT_FALSE(isMapped(file));
}

class DynLoadDenied : public qvtest::NeedsRoot
{};

TEST_F(DynLoadDenied, FileWithoutReadPermissionIsReported)
{
    const ScratchFolder folder;
    const String file = folder.file("other.so");
    std::filesystem::copy_file(OTHER, file);
    ASSERT_EQ(0, chmod(folder.path().c_str(), 0755));
    ASSERT_EQ(0, chmod(file.c_str(), 0700));
    {
        const qvtest::AsNobody nobody;
        const Failure failure = load(file);
        EXPECT_EQ(13, failure.error);
        EXPECT_EQ("Unable to load \"" + file + "\": Permission denied, " + file
                      + ": cannot open shared object file: Permission denied)",
                  failure.text);
    }
    EXPECT_EQ(5, valueOf(DynLibrary::load(file)->symbol("dyn_other_value")));
}

TEST(DynLoadFailure, LeavesNothingBehind)
{
    const ScratchFolder folder;
    const String file = folder.file("other.so");
    const DynLoaderMgrRef manager = DynLoaderMgr::manager();
    const unsigned int before = manager->refCount(true);
    EXPECT_EQ(2, load(file).error);
    EXPECT_EQ(before, manager->refCount(true));

    std::filesystem::copy_file(OTHER, file);
    const ConstDynLibraryRef library = DynLibrary::load(file);
    EXPECT_EQ(5, valueOf(library->symbol("dyn_other_value")));
    EXPECT_EQ(2u, library->refCount(true));
}

TEST(DynLoadFailureDeathTest, ExceptionOfAnInitialiserTerminatesTheProcess)
{
    EXPECT_EXIT(
        {
            Hooks hooks;
            hooks.loaded = [] { throw 1; };
            try {
                DynLibrary::load(HOOKED);
            } catch (...) {
                _exit(7);
            }
            _exit(8);
        },
        testing::KilledBySignal(SIGABRT), support::TERMINATE_MESSAGE);
}

}
