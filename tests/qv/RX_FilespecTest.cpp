#include <qv/rtlapi/RX_Filespec.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Scratch.hpp"

#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>

namespace {

using qvtest::AsNobody;
using qvtest::Scratch;

typedef qvtest::NeedsRoot RX_FilespecAsRoot;

RX_Filespec specOf(const char* text)
{
    return RX_Filespec(text, RX_Filespec::DONTCARE, 0);
}

struct Outcome
{
    char type;
    int code;
};

bool operator==(const Outcome& left, const Outcome& right)
{
    return left.type == right.type && left.code == right.code;
}

std::ostream& operator<<(std::ostream& os, const Outcome& outcome)
{
    return os << outcome.type << outcome.code;
}

const Outcome GRANTED = {'-', 0};
const Outcome WARNING_ACCESS = {'W', 13};

Outcome error(int code)
{
    return {'E', code};
}

Outcome check(const std::string& path, RX_Filespec::access rights, si_uint16_t options = 0)
{
    try {
        const RX_Filespec spec(RX_String(path.data(), path.size()), rights, options);
    } catch (const RX_ExWarning& warning) {
        return {'W', warning.getCode()};
    } catch (const RX_ExError& failure) {
        return {'E', failure.getCode()};
    }
    return GRANTED;
}

TEST(RX_Filespec, RightsHaveTheirDocumentedValues)
{
    EXPECT_EQ(static_cast<int>(RX_Filespec::DONTCARE), 0);
    EXPECT_EQ(static_cast<int>(RX_Filespec::READ), 1);
    EXPECT_EQ(static_cast<int>(RX_Filespec::WRITE), 2);
    EXPECT_EQ(static_cast<int>(RX_Filespec::RW), 3);
    EXPECT_EQ(static_cast<int>(RX_Filespec::CREATE), 4);
    EXPECT_EQ(static_cast<int>(RX_Filespec::EXECUTE), 8);
}

TEST(RX_Filespec, ComponentsHaveTheirDocumentedValues)
{
    EXPECT_EQ(static_cast<int>(RX_Filespec::SCHEME), 1);
    EXPECT_EQ(static_cast<int>(RX_Filespec::HOST), 2);
    EXPECT_EQ(static_cast<int>(RX_Filespec::DIRECTORY), 3);
    EXPECT_EQ(static_cast<int>(RX_Filespec::FILENAME), 4);
    EXPECT_EQ(static_cast<int>(RX_Filespec::TYPE), 5);
    EXPECT_EQ(static_cast<int>(RX_Filespec::SUBTYPE), 6);
    EXPECT_EQ(static_cast<int>(RX_Filespec::COMPLETE), 7);
    EXPECT_EQ(static_cast<int>(RX_Filespec::FILESPEC), 8);
    EXPECT_EQ(static_cast<int>(RX_Filespec::BASENAME), 9);
}

TEST(RX_Filespec, DirectoryEndsInItsSeparatorOrIsEmpty)
{
    EXPECT_EQ(specOf("/var/log/host.log").directory(), "/var/log/");
    EXPECT_EQ(specOf("log/host.log").directory(), "log/");
    EXPECT_EQ(specOf("host.log").directory(), "");
    EXPECT_EQ(specOf("/host.log").directory(), "/");
    EXPECT_EQ(specOf("/").directory(), "/");
    EXPECT_EQ(specOf("").directory(), "");
    EXPECT_EQ(specOf("log//host.log").directory(), "log//");
    EXPECT_EQ(specOf("log/").directory(), "log/");
    EXPECT_EQ(specOf("../x").directory(), "../");
}

TEST(RX_Filespec, BasenameIsTheLastComponent)
{
    EXPECT_EQ(specOf("/var/log/host.log").basename(), "host.log");
    EXPECT_EQ(specOf("host.log").basename(), "host.log");
    EXPECT_EQ(specOf("/").basename(), "");
    EXPECT_EQ(specOf("").basename(), "");
    EXPECT_EQ(specOf("log/").basename(), "");
    EXPECT_EQ(specOf("..").basename(), "..");
    EXPECT_EQ(specOf("a\\b").basename(), "a\\b");
    EXPECT_EQ(specOf("http://host/file").basename(), "file");
    EXPECT_EQ(specOf("C:name").basename(), "C:name");
}

TEST(RX_Filespec, FilespecIsTheWholeName)
{
    EXPECT_EQ(specOf("/var//log/./host.log").filespec(), "/var//log/./host.log");
    EXPECT_EQ(specOf("").filespec(), "");
    EXPECT_EQ(specOf(" a b ").filespec(), " a b ");
}

TEST(RX_Filespec, ComponentThatIsTheWholeNameSharesItsCharacters)
{
    const RX_String text("host.log");
    const RX_Filespec spec(text, RX_Filespec::DONTCARE, 0);
    EXPECT_EQ(spec.basename().data(), text.data());
    EXPECT_EQ(spec.filespec().data(), text.data());
}

TEST(RX_Filespec, FilenameAndTypeMakeUpTheBasename)
{
    EXPECT_EQ(specOf("/a.b/host.log").parse(RX_Filespec::FILENAME), "host");
    EXPECT_EQ(specOf("/a.b/host.log").parse(RX_Filespec::TYPE), ".log");
    EXPECT_EQ(specOf("/a.b/host").parse(RX_Filespec::FILENAME), "host");
    EXPECT_EQ(specOf("/a.b/host").parse(RX_Filespec::TYPE), "");
    EXPECT_EQ(specOf("x.tar.gz").parse(RX_Filespec::FILENAME), "x.tar");
    EXPECT_EQ(specOf("x.tar.gz").parse(RX_Filespec::TYPE), ".gz");
    EXPECT_EQ(specOf("x.").parse(RX_Filespec::FILENAME), "x");
    EXPECT_EQ(specOf("x.").parse(RX_Filespec::TYPE), ".");
    EXPECT_EQ(specOf("a.b/").parse(RX_Filespec::FILENAME), "");
    EXPECT_EQ(specOf("a.b/").parse(RX_Filespec::TYPE), "");
}

TEST(RX_Filespec, LeadingDotsDoNotStartAnExtension)
{
    EXPECT_EQ(specOf("d/.profile").parse(RX_Filespec::FILENAME), ".profile");
    EXPECT_EQ(specOf("d/.profile").parse(RX_Filespec::TYPE), "");
    EXPECT_EQ(specOf("d/.profile.old").parse(RX_Filespec::TYPE), ".old");
    EXPECT_EQ(specOf("d/..").parse(RX_Filespec::FILENAME), "..");
    EXPECT_EQ(specOf("d/..").parse(RX_Filespec::TYPE), "");
    EXPECT_EQ(specOf(".").parse(RX_Filespec::FILENAME), ".");
}

TEST(RX_Filespec, SubtypeIsTheExtensionBeforeTheType)
{
    EXPECT_EQ(specOf("a.b/x.tar.gz").parse(RX_Filespec::SUBTYPE), ".tar");
    EXPECT_EQ(specOf("a.b/x.gz").parse(RX_Filespec::SUBTYPE), "");
    EXPECT_EQ(specOf("a.b/x").parse(RX_Filespec::SUBTYPE), "");
}

TEST(RX_Filespec, SchemeAndHostAreEmpty)
{
    EXPECT_EQ(specOf("http://host/file").parse(RX_Filespec::SCHEME), "");
    EXPECT_EQ(specOf("http://host/file").parse(RX_Filespec::HOST), "");
}

TEST(RX_Filespec, CompleteIsAbsolute)
{
    const Scratch scratch;
    const std::string before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    EXPECT_EQ(specOf("a/b").parse(RX_Filespec::COMPLETE), scratch.path("a/b").c_str());
    EXPECT_EQ(specOf("/a/b").parse(RX_Filespec::COMPLETE), "/a/b");
    EXPECT_EQ(specOf("").parse(RX_Filespec::COMPLETE), "");
    std::filesystem::current_path("/");
    EXPECT_EQ(specOf("a/b").parse(RX_Filespec::COMPLETE), "/a/b");
    std::filesystem::current_path(before);
}

TEST(RX_Filespec, CompleteThrowsIfTheWorkingDirectoryWasRemoved)
{
    const Scratch scratch;
    const std::string before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.directory("gone"));
    std::filesystem::remove(scratch.path("gone"));
    int code = 0;
    try {
        specOf("a").parse(RX_Filespec::COMPLETE);
    } catch (const RX_ExError& failure) {
        code = failure.getCode();
    }
    std::filesystem::current_path(before);
    EXPECT_EQ(code, 2);
}

TEST(RX_Filespec, IparseCountsDirectoriesFromTheOutermost)
{
    const RX_Filespec spec = specOf("/var//log/host.log");
    EXPECT_EQ(spec.iparse(RX_Filespec::DIRECTORY, 0), "var");
    EXPECT_EQ(spec.iparse(RX_Filespec::DIRECTORY, 1), "log");
    EXPECT_EQ(spec.iparse(RX_Filespec::DIRECTORY, 2), "");
    EXPECT_EQ(spec.iparse(RX_Filespec::DIRECTORY, 2147483647), "");
    EXPECT_EQ(spec.iparse(RX_Filespec::DIRECTORY, -1), "");
    EXPECT_EQ(specOf("host.log").iparse(RX_Filespec::DIRECTORY, 0), "");
}

TEST(RX_Filespec, IparseCountsExtensionsFromTheLast)
{
    const RX_Filespec spec = specOf("a.b/x.1.tar.gz");
    EXPECT_EQ(spec.iparse(RX_Filespec::TYPE, 0), ".gz");
    EXPECT_EQ(spec.iparse(RX_Filespec::TYPE, 1), ".tar");
    EXPECT_EQ(spec.iparse(RX_Filespec::TYPE, 2), ".1");
    EXPECT_EQ(spec.iparse(RX_Filespec::TYPE, 3), "");
    EXPECT_EQ(spec.iparse(RX_Filespec::TYPE, 2147483647), "");
}

TEST(RX_Filespec, IparseReturnsOtherComponentsWhole)
{
    const RX_Filespec spec = specOf("a/x.gz");
    EXPECT_EQ(spec.iparse(RX_Filespec::BASENAME, 0), "x.gz");
    EXPECT_EQ(spec.iparse(RX_Filespec::BASENAME, 1), "");
    EXPECT_EQ(spec.iparse(RX_Filespec::FILESPEC, 0), "a/x.gz");
}

TEST(RX_Filespec, QuotedEscapesTheWildcardsOfTheBasename)
{
    EXPECT_EQ(specOf("/lo[g]*/a*b?.log").quoted(), "/lo[g]*/a\\*b\\?.log");
    EXPECT_EQ(specOf("plain").quoted(), "plain");
}

TEST(RX_FilespecRights, DontcareNeverFails)
{
    EXPECT_EQ(check("", RX_Filespec::DONTCARE), GRANTED);
    EXPECT_EQ(check("/no/such/file", RX_Filespec::DONTCARE), GRANTED);
    EXPECT_EQ(check(std::string("a\0b", 3), RX_Filespec::DONTCARE), GRANTED);
}

TEST_F(RX_FilespecAsRoot, DeferredCheckNeverFails)
{
    const Scratch scratch;
    const std::string hidden = scratch.directory("hidden", 0700);
    const AsNobody nobody;
    for (const RX_Filespec::access rights :
         {RX_Filespec::READ, RX_Filespec::WRITE, RX_Filespec::CREATE, RX_Filespec::EXECUTE}) {
        EXPECT_EQ(check("", rights, 1), GRANTED);
        EXPECT_EQ(check("/no/such/file", rights, 1), GRANTED);
        EXPECT_EQ(check(hidden + "/file", rights, 1), GRANTED);
    }
}

TEST(RX_FilespecRights, OwnerHasTheRightsOfTheFileMode)
{
    const Scratch scratch;
    const std::string file = scratch.file("file", 0700);
    EXPECT_EQ(check(file, RX_Filespec::READ), GRANTED);
    EXPECT_EQ(check(file, RX_Filespec::WRITE), GRANTED);
    EXPECT_EQ(check(file, RX_Filespec::RW), GRANTED);
    EXPECT_EQ(check(file, RX_Filespec::EXECUTE), GRANTED);
    EXPECT_EQ(check(file, RX_Filespec::CREATE), GRANTED);
    const auto all =
        static_cast<RX_Filespec::access>(RX_Filespec::RW | RX_Filespec::CREATE | RX_Filespec::EXECUTE);
    EXPECT_EQ(check(file, all), GRANTED);
}

TEST(RX_FilespecRights, OwnerHasTheRightsOfADirectory)
{
    const Scratch scratch;
    EXPECT_EQ(check(scratch.path(), RX_Filespec::READ), GRANTED);
    EXPECT_EQ(check(scratch.path(), RX_Filespec::WRITE), GRANTED);
    EXPECT_EQ(check(scratch.path(), RX_Filespec::EXECUTE), GRANTED);
}

TEST_F(RX_FilespecAsRoot, RightsAreThoseOfTheEffectiveUser)
{
    const Scratch scratch;
    const std::string file = scratch.file("file", 0744);
    const AsNobody nobody;
    EXPECT_EQ(check(file, RX_Filespec::READ), GRANTED);
    EXPECT_EQ(check(file, RX_Filespec::WRITE), WARNING_ACCESS);
    EXPECT_EQ(check(file, RX_Filespec::RW), WARNING_ACCESS);
    EXPECT_EQ(check(file, RX_Filespec::EXECUTE), WARNING_ACCESS);
    EXPECT_EQ(check(file, RX_Filespec::CREATE), WARNING_ACCESS);
}

TEST(RX_FilespecRights, FileWithoutExecuteBitsIsExecutableForNoUser)
{
    const Scratch scratch;
    EXPECT_EQ(check(scratch.file("file", 0644), RX_Filespec::EXECUTE), WARNING_ACCESS);
}

TEST(RX_FilespecRights, MissingFileIsAnError)
{
    const Scratch scratch;
    for (const RX_Filespec::access rights : {RX_Filespec::READ, RX_Filespec::WRITE, RX_Filespec::EXECUTE}) {
        EXPECT_EQ(check(scratch.path("missing"), rights), error(2));
        EXPECT_EQ(check("", rights), error(2));
        EXPECT_EQ(check(scratch.file("file") + "/below", rights), error(20));
    }
}

TEST(RX_FilespecRights, NameWithAZeroByteIsAnError)
{
    const Scratch scratch;
    const std::string name = scratch.file("file") + std::string("\0tail", 5);
    EXPECT_EQ(check(name, RX_Filespec::READ), error(22));
    EXPECT_EQ(check(name, RX_Filespec::CREATE), error(22));
}

TEST(RX_FilespecRights, ErrorNamesTheFile)
{
    try {
        const RX_Filespec spec("/no/such/file", RX_Filespec::READ, 0);
        FAIL();
    } catch (const RX_ExError& failure) {
        EXPECT_EQ(failure.getArgument(0), "/no/such/file");
        EXPECT_EQ(failure.asString(78), "No such file or directory: /no/such/file");
    }
}

TEST(RX_FilespecCreate, DoesNotCreateTheFile)
{
    const Scratch scratch;
    EXPECT_EQ(check(scratch.path("new"), RX_Filespec::CREATE), GRANTED);
    EXPECT_FALSE(std::filesystem::exists(scratch.path("new")));
    const auto both = static_cast<RX_Filespec::access>(RX_Filespec::CREATE | RX_Filespec::RW);
    EXPECT_EQ(check(scratch.path("new"), both), GRANTED);
    EXPECT_FALSE(std::filesystem::exists(scratch.path("new")));
}

TEST(RX_FilespecCreate, DoesNotModifyTheFile)
{
    const Scratch scratch;
    const std::string file = scratch.file("file");
    const auto before = std::filesystem::last_write_time(file);
    EXPECT_EQ(check(file, RX_Filespec::CREATE), GRANTED);
    EXPECT_EQ(std::filesystem::file_size(file), 4U);
    EXPECT_EQ(std::filesystem::last_write_time(file), before);
}

TEST(RX_FilespecCreate, DoesNotReleaseFileLocksOfTheProcess)
{
    const Scratch scratch;
    const std::string file = scratch.file("file");
    const int descriptor = ::open(file.c_str(), O_RDWR);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(::fcntl(descriptor, F_SETLK, &lock), 0);
    EXPECT_EQ(check(file, RX_Filespec::CREATE), GRANTED);

    const pid_t child = ::fork();
    if (child == 0) {
        struct flock wanted = {};
        wanted.l_type = F_WRLCK;
        ::_exit(::fcntl(descriptor, F_GETLK, &wanted) == 0 && wanted.l_type == F_WRLCK ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ::close(descriptor);
}

TEST(RX_FilespecCreate, BareNameIsInTheWorkingDirectory)
{
    const Scratch scratch;
    const std::string before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    const Outcome outcome = check("new", RX_Filespec::CREATE);
    std::filesystem::current_path(before);
    EXPECT_EQ(outcome, GRANTED);
}

TEST_F(RX_FilespecAsRoot, DeniedCreationIsAWarning)
{
    const Scratch scratch;
    const std::string closed = scratch.directory("closed", 0755);
    const std::string hidden = scratch.directory("hidden", 0700);
    const std::string blind = scratch.directory("blind", 0702);
    const AsNobody nobody;
    EXPECT_EQ(check(closed + "/new", RX_Filespec::CREATE), WARNING_ACCESS);
    EXPECT_EQ(check(hidden + "/new", RX_Filespec::CREATE), WARNING_ACCESS);
    EXPECT_EQ(check(blind + "/new", RX_Filespec::CREATE), WARNING_ACCESS);
    EXPECT_EQ(check(hidden + "/new/", RX_Filespec::CREATE), WARNING_ACCESS);
}

TEST_F(RX_FilespecAsRoot, WritableFileInAReadOnlyDirectoryIsGranted)
{
    const Scratch scratch;
    const std::string file = scratch.directory("closed", 0755) + "/file";
    scratch.file("closed/file", 0666);
    const AsNobody nobody;
    EXPECT_EQ(check(file, RX_Filespec::CREATE), GRANTED);
}

TEST(RX_FilespecCreate, MissingDirectoryIsAnError)
{
    const Scratch scratch;
    EXPECT_EQ(check(scratch.path("missing/new"), RX_Filespec::CREATE), error(2));
    EXPECT_EQ(check("", RX_Filespec::CREATE), error(2));
    EXPECT_EQ(check(scratch.file("file") + "/new", RX_Filespec::CREATE), error(20));
}

TEST(RX_FilespecCreate, NameOfADirectoryIsAnError)
{
    const Scratch scratch;
    EXPECT_EQ(check(scratch.path(), RX_Filespec::CREATE), error(21));
    EXPECT_EQ(check(scratch.path("."), RX_Filespec::CREATE), error(21));
    EXPECT_EQ(check(".", RX_Filespec::CREATE), error(21));
    EXPECT_EQ(check("/", RX_Filespec::CREATE), error(21));
}

TEST_F(RX_FilespecAsRoot, NameOfADirectoryThatCannotBeWrittenToIsAnError)
{
    const Scratch scratch;
    const std::string closed = scratch.directory("closed", 0755);
    const AsNobody nobody;
    EXPECT_EQ(check(closed, RX_Filespec::CREATE), error(21));
}

TEST(RX_FilespecCreate, TrailingSlashIsAnError)
{
    const Scratch scratch;
    EXPECT_EQ(check(scratch.path("new/"), RX_Filespec::CREATE), error(21));
    EXPECT_EQ(check(scratch.path("new//"), RX_Filespec::CREATE), error(21));
    EXPECT_EQ(check(scratch.file("file") + "/", RX_Filespec::CREATE), error(21));
    EXPECT_EQ(check(scratch.path("missing/new/"), RX_Filespec::CREATE), error(2));
    EXPECT_EQ(check(scratch.path("new"), RX_Filespec::CREATE), GRANTED);
}

TEST(RX_FilespecCreate, NameThatIsTooLongIsAnError)
{
    const Scratch scratch;
    EXPECT_EQ(check(scratch.path(std::string(256, 'x')), RX_Filespec::CREATE), error(36));
    EXPECT_EQ(check(scratch.path(std::string(255, 'x')), RX_Filespec::CREATE), GRANTED);
    EXPECT_EQ(check(std::string(5000, '/') + "x", RX_Filespec::CREATE), error(36));
}

TEST(RX_FilespecCreate, NameThatIsTooLongAndEndsInASlashIsTooLong)
{
    const Scratch scratch;
    EXPECT_EQ(check(scratch.path(std::string(256, 'x') + "/"), RX_Filespec::CREATE), error(36));
    EXPECT_EQ(check(scratch.path(std::string(256, 'x') + "//"), RX_Filespec::CREATE), error(36));
    EXPECT_EQ(check(scratch.path(std::string(256, 'x') + "/new/"), RX_Filespec::CREATE), error(36));
    EXPECT_EQ(check(std::string(5000, '/'), RX_Filespec::CREATE), error(36));
    EXPECT_EQ(check(scratch.path(std::string(255, 'x') + "/"), RX_Filespec::CREATE), error(21));
}

TEST(RX_FilespecCreate, DanglingLinkIsCheckedAsItsTarget)
{
    const Scratch scratch;
    scratch.directory("sub");
    EXPECT_EQ(check(scratch.link("absolute", scratch.path("sub/new")), RX_Filespec::CREATE), GRANTED);
    EXPECT_EQ(check(scratch.link("relative", "sub/new"), RX_Filespec::CREATE), GRANTED);
    EXPECT_EQ(check(scratch.link("chained", "relative"), RX_Filespec::CREATE), GRANTED);
    EXPECT_EQ(check(scratch.link("lost", "missing/new"), RX_Filespec::CREATE), error(2));
    EXPECT_EQ(check(scratch.link("slashed", "new/"), RX_Filespec::CREATE), error(21));
    EXPECT_EQ(check(scratch.link("directory", "sub"), RX_Filespec::CREATE), error(21));
    EXPECT_EQ(check(scratch.link("circle", "circle"), RX_Filespec::CREATE), error(40));
    EXPECT_FALSE(std::filesystem::exists(scratch.path("sub/new")));
}

TEST_F(RX_FilespecAsRoot, DanglingLinkIsDeniedIfItsTargetIs)
{
    const Scratch scratch;
    scratch.directory("closed", 0755);
    scratch.directory("open", 0777);
    const std::string inward = scratch.link("open/inward", "../closed/new");
    const std::string outward = scratch.link("closed/outward", "../open/new");
    const AsNobody nobody;
    EXPECT_EQ(check(inward, RX_Filespec::CREATE), WARNING_ACCESS);
    EXPECT_EQ(check(outward, RX_Filespec::CREATE), GRANTED);
}

/** Returns 0 if the checks succeed on a read-only file system, 77 if none can be mounted, otherwise 1. */
int checkReadOnly(const Scratch& scratch)
{
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0
        || ::mount("none", scratch.path().c_str(), "tmpfs", 0, nullptr) != 0) {
        return 77;
    }
    const std::string file = scratch.file("file", 0777);
    if (::mount("none", scratch.path().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        return 77;
    }
    const bool right = check(file, RX_Filespec::CREATE) == error(30)
                       && check(scratch.path("new"), RX_Filespec::CREATE) == error(30)
                       && check(file, RX_Filespec::WRITE) == error(30)
                       && check(file, RX_Filespec::READ) == GRANTED;
    return right ? 0 : 1;
}

TEST(RX_FilespecCreate, ReadOnlyFileSystemIsAnError)
{
    const Scratch scratch;
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(checkReadOnly(scratch));
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "cannot mount a file system";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(RX_FilespecAsRoot, RunningProgramIsNotDetected)
{
    EXPECT_EQ(check("/proc/self/exe", RX_Filespec::CREATE), GRANTED);
}

}
