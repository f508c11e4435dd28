#include <dalnim/io/FsOps.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <qv/pmx/path.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/** If set, these replace functions of the runtime layer, for results that it does not return on this host. */
std::function<qv_err_t(size_t size, char* buffer)> resolved;
std::function<qv_err_t()> looked_at;

}

#ifndef IO_STATIC_LIBRARY
qv_err_t qv_si_getrealpath(const char* path, size_t size, char* buffer) noexcept
{
    if (resolved) {
        return resolved(size, buffer);
    }
    typedef qv_err_t (*Function)(const char*, size_t, char*);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "qv_si_getrealpath"))(path, size, buffer);
}

qv_err_t qv_si_isdir(const char* path) noexcept
{
    if (looked_at) {
        return looked_at();
    }
    typedef qv_err_t (*Function)(const char*);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "qv_si_isdir"))(path);
}
#endif

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::fullPath;
using com::kor::dal::nim::io::pathStat;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using namespace com::kor::dal::nim;

constexpr uid_t NOBODY = 65534;

/** Changes the effective user to one without rights, for a scope. */
class AsNobody
{
public:
    AsNobody() : previous(geteuid())
    {
        dropped = previous == 0 && seteuid(NOBODY) == 0;
    }
    ~AsNobody()
    {
        if (dropped && seteuid(previous) != 0) {
            abort();
        }
    }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

private:
    const uid_t previous;
    bool dropped;
};

class FsOps : public testing::Test
{
protected:
    FsOps()
    {
        char name[] = "/tmp/dalnim-fsops-XXXXXX";
        scratch = std::filesystem::canonical(mkdtemp(name));
        chmod(scratch.c_str(), 0755);
    }
    ~FsOps() override
    {
        resolved = nullptr;
        looked_at = nullptr;
        std::filesystem::remove_all(scratch);
    }

    String in(const String& name) const
    {
        return scratch + "/" + name;
    }
    String make_file(const String& name, mode_t mode = 0644) const
    {
        std::ofstream(in(name)) << "text\n";
        EXPECT_EQ(0, chmod(in(name).c_str(), mode));
        return in(name);
    }
    String make_dir(const String& name, mode_t mode = 0755) const
    {
        EXPECT_EQ(0, mkdir(in(name).c_str(), 0755));
        EXPECT_EQ(0, chmod(in(name).c_str(), mode));
        return in(name);
    }

    String scratch;
};

typedef FsOps FullPath;
typedef FsOps PathStat;

template <typename Call>
String invalid_argument_of(Call call)
{
    try {
        call();
    } catch (const std::invalid_argument& failure) {
        return failure.what();
    }
    return "no std::invalid_argument";
}

template <typename Call>
void expect_system_error(int number, const String& text, Call call)
{
    try {
        call();
        ADD_FAILURE() << "no system_error; expected: " << text;
    } catch (const system_error& failure) {
        EXPECT_EQ(number, failure.error());
        EXPECT_EQ(text, failure.what());
    }
}

// fullPath

TEST_F(FullPath, AcceptsArraysAndStrings)
{
    const String file = make_file("file");
    EXPECT_EQ(file, fullPath(file));
    EXPECT_EQ(file, fullPath(file.c_str()));
    EXPECT_EQ("/tmp", fullPath("/tmp"));
}

TEST_F(FullPath, ReturnsTheCanonicalPath)
{
    const String file = make_file("file");
    make_dir("dir");
    ASSERT_EQ(0, symlink("file", in("link").c_str()));
    ASSERT_EQ(0, symlink("link", in("link-to-link").c_str()));
    EXPECT_EQ(file, fullPath(in("./dir/..//file")));
    EXPECT_EQ(file, fullPath(in("link-to-link")));
    EXPECT_EQ(scratch, fullPath(in("dir/..")));
}

TEST_F(FullPath, ResolvesARelativePathFromTheCurrentDirectory)
{
    const String file = make_file("file");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(scratch);
    const String from_name = fullPath("file");
    const String from_dot = fullPath(".");
    std::filesystem::current_path(before);
    EXPECT_EQ(file, from_name);
    EXPECT_EQ(scratch, from_dot);
}

TEST_F(FullPath, RemovesSpacesQuotesAndTrailingSeparators)
{
    const String dir = make_dir("dir");
    const struct
    {
        String before;
        String after;
    } table[] = {
        {"", "/"},         {"", "///"},          {"", "\\"}, {"", "/\\/"},   {"  ", ""},
        {"", " \t\n"},     {"\"", "\""},         {"'", "'"}, {"\"'", "'\""}, {" '", "/' "},
        {"  \"", "/\"  "}, {"\v\f\r", "\v\f\r"}, {"\"", ""}, {"", "'"},
    };
    for (const auto& row : table) {
        const String text = row.before + dir + row.after;
        EXPECT_EQ(dir, fullPath(text)) << text;
        EXPECT_EQ(dir, fullPath(text.c_str())) << text;
    }
    EXPECT_EQ("/tmp", fullPath("  \"/tmp/\"  "));
}

TEST_F(FullPath, SpacesWithinQuotesBelongToThePath)
{
    // Spaces are removed first, then quotes: a space between quotes is part of the name.
    const String name = make_file(" x ");
    EXPECT_EQ(name, fullPath("\"" + name + "\""));
    expect_system_error(ENOENT, "Error resolving '" + in(" x") + "': No such file or directory",
                        [&] { fullPath(name); });
}

TEST_F(FullPath, ReplacesBackslashesBySlashes)
{
    make_dir("a\\b");
    EXPECT_EQ(in("a/b"), fullPath(in("a\\b")));
    EXPECT_EQ(in("a/b"), fullPath(in("a\\b\\")));
}

TEST_F(FullPath, EmptyPathThrows)
{
    const char* const null = nullptr;
    EXPECT_EQ("Specified path is nil.", invalid_argument_of([&] { fullPath(null); }));
    EXPECT_EQ("Specified path is nil.", invalid_argument_of([] { fullPath(""); }));
    EXPECT_EQ("Specified path is nil.", invalid_argument_of([] { fullPath(String()); }));
    for (const char* const text : {"/", "//", "\\", "  ", "''", "\"\"", " \"/\" ", "'\"", " '\\//' "}) {
        EXPECT_EQ("Specified path is nil.", invalid_argument_of([&] { fullPath(text); })) << text;
        EXPECT_EQ("Specified path is nil.", invalid_argument_of([&] { fullPath(String(text)); })) << text;
    }
}

TEST_F(FullPath, UnresolvablePathThrows)
{
    const String missing = in("missing");
    expect_system_error(2, "Error resolving '" + missing + "': No such file or directory",
                        [&] { fullPath(missing); });
    // The message contains the part that was resolved, not the whole argument.
    expect_system_error(2, "Error resolving '" + missing + "': No such file or directory",
                        [&] { fullPath("  '" + missing + "/' "); });

    const String below_file = make_file("file") + "/x";
    expect_system_error(20, "Error resolving '" + below_file + "': Not a directory",
                        [&] { fullPath(below_file.c_str()); });

    const String too_long = in(String(256, 'n'));
    expect_system_error(36, "Error resolving '" + too_long + "': File name too long",
                        [&] { fullPath(too_long); });

    ASSERT_EQ(0, symlink("loop", in("loop").c_str()));
    expect_system_error(40, "Error resolving '" + in("loop") + "': Too many levels of symbolic links",
                        [&] { fullPath(in("loop")); });
}

TEST_F(FullPath, PathWithAZeroByteDoesNotExist)
{
    const String file = make_file("file");
    const String zero(1, '\0');
    const auto expect_missing = [](const String& path, const String& text) {
        expect_system_error(2, "Error resolving '" + text + "': No such file or directory",
                            [&] { fullPath(path); });
    };
    expect_missing(file + zero, file + "\\0");
    expect_missing(file + zero + "x", file + "\\0x");
    expect_missing(" '" + file + zero + "x" + zero + "/' ", file + "\\0x\\0");
    expect_missing(zero, "\\0");
    expect_missing(zero + file, "\\0" + file);
}

TEST_F(FullPath, InaccessibleDirectoryThrows)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs to drop rights";
    }
    make_dir("locked", 0700);
    const String hidden = make_file("locked/file");
    const AsNobody nobody;
    expect_system_error(13, "Error resolving '" + hidden + "': Permission denied", [&] { fullPath(hidden); });
}

TEST_F(FullPath, ResolvesAPathOfMaximumLength)
{
    // 4095 characters and the terminator: the capacity of the buffer.
    String path = scratch;
    while (path.length() + 1 + 200 < 4095) {
        path += "/" + String(199, 'd');
        ASSERT_EQ(0, mkdir(path.c_str(), 0755)) << path.length();
    }
    path += "/" + String(4095 - path.length() - 1, 'e');
    ASSERT_EQ(4095U, path.length());
    ASSERT_EQ(0, mkdir(path.c_str(), 0755));
    EXPECT_EQ(path, fullPath(path));
}

#ifndef IO_STATIC_LIBRARY
TEST_F(FullPath, AcceptsAResultWithAWarning)
{
    resolved = [](size_t size, char* buffer) {
        std::snprintf(buffer, size, "/a\\b/c");
        return 882164500;
    };
    EXPECT_EQ("/a/b/c", fullPath("x"));
    resolved = [](size_t size, char* buffer) {
        std::snprintf(buffer, size, "/a");
        return 882164501;
    };
    expect_system_error(882164501, "Error resolving 'x': Unknown error 882164501", [] { fullPath("x"); });
}

TEST_F(FullPath, ResolvesAgainIfTheResultFillsTheBuffer)
{
    std::vector<size_t> sizes;
    qv_err_t second = 0;
    resolved = [&](size_t size, char* buffer) {
        sizes.push_back(size);
        std::memset(buffer, '\\', size);
        if (sizes.size() == 1) {
            return qv_err_t(882164500);
        }
        buffer[size - 1] = '\0';
        return second;
    };
    EXPECT_EQ(String(4096, '/'), fullPath("x"));
    EXPECT_EQ((std::vector<size_t>{4096, 4097}), sizes);

    sizes.clear();
    second = 882164500;
    EXPECT_EQ(String(4096, '/'), fullPath("x"));

    sizes.clear();
    second = 5;
    expect_system_error(5, "Error resolving 'x': Input/output error", [] { fullPath("x"); });
    EXPECT_EQ(2U, sizes.size());

    // With one character less, the result and its terminator fit.
    sizes.clear();
    resolved = [&](size_t size, char* buffer) {
        sizes.push_back(size);
        std::memset(buffer, '\\', size - 1);
        buffer[size - 1] = '\0';
        return qv_err_t(0);
    };
    EXPECT_EQ(String(4095, '/'), fullPath("x"));
    EXPECT_EQ((std::vector<size_t>{4096}), sizes);
}
#endif

TEST_F(FullPath, FunctionIsNamedInTheTrace)
{
    const StackTrack track("caller()", 7);
    try {
        fullPath(in("missing"));
        FAIL();
    } catch (const system_error& failure) {
        ASSERT_EQ(2U, failure.trace().size());
        EXPECT_EQ(0U, failure.trace()[0].find("com.kor.dal.nim.io.fullPath():"));
        EXPECT_EQ("caller():7", failure.trace()[1]);
    }
}

// pathStat

TEST_F(PathStat, FlagsHaveTheirValues)
{
    EXPECT_EQ(1, io::PATH_EXISTS);
    EXPECT_EQ(2, io::PATH_IS_DIR);
    EXPECT_EQ(4, io::PATH_CAN_EXECUTE);
    EXPECT_EQ(8, io::PATH_CAN_SEARCH);
    EXPECT_EQ(16, io::PATH_CAN_READ);
    EXPECT_EQ(32, io::PATH_CAN_WRITE);
}

TEST_F(PathStat, ReturnsAllFlagsOfADirectory)
{
    const String dir = make_dir("dir");
    EXPECT_EQ(63, pathStat(dir, 0, false));
    EXPECT_EQ(63, pathStat(dir.c_str(), 0, false));
    EXPECT_EQ(63, pathStat(dir, 63, true));
    EXPECT_EQ(63, pathStat(dir));
    EXPECT_EQ(63, pathStat(dir.c_str()));
    EXPECT_EQ(63, pathStat(dir + "/"));
}

TEST_F(PathStat, ReturnsAllFlagsOfAFile)
{
    // Even root may execute only files with an execute bit.
    EXPECT_EQ(1 + 16 + 32, pathStat(make_file("plain", 0644)));
    EXPECT_EQ(1 + 4 + 16 + 32, pathStat(make_file("program", 0755)));
}

TEST_F(PathStat, ReturnsOnlyCheckedFlags)
{
    const String dir = make_dir("dir");
    const String file = make_file("file");
    EXPECT_EQ(2, pathStat(dir, io::PATH_IS_DIR, false));
    EXPECT_EQ(1, pathStat(dir, io::PATH_EXISTS, false));
    EXPECT_EQ(16, pathStat(file, io::PATH_CAN_READ, false));
    EXPECT_EQ(32, pathStat(file, io::PATH_CAN_WRITE, false));
    EXPECT_EQ(48, pathStat(file, io::PATH_CAN_READ | io::PATH_CAN_WRITE, false));
    EXPECT_EQ(4, pathStat(dir, io::PATH_CAN_EXECUTE, false));
    EXPECT_EQ(6, pathStat(dir, io::PATH_IS_DIR | io::PATH_CAN_EXECUTE, false));
}

TEST_F(PathStat, ReturnsOneIfNoCheckedFlagIsTrue)
{
    const String file = make_file("file");
    EXPECT_EQ(1, pathStat(file, io::PATH_IS_DIR, false));
    EXPECT_EQ(1, pathStat(file, io::PATH_CAN_EXECUTE, false));
    EXPECT_EQ(1, pathStat(file, io::PATH_CAN_SEARCH, false));
    EXPECT_EQ(1, pathStat(file, io::PATH_IS_DIR | io::PATH_CAN_EXECUTE | io::PATH_CAN_SEARCH, true));
}

TEST_F(PathStat, SearchRequiresDirectoryAndExecute)
{
    const String dir = make_dir("dir");
    EXPECT_EQ(1, pathStat(dir, io::PATH_CAN_SEARCH));
    EXPECT_EQ(2, pathStat(dir, io::PATH_CAN_SEARCH | io::PATH_IS_DIR));
    EXPECT_EQ(4, pathStat(dir, io::PATH_CAN_SEARCH | io::PATH_CAN_EXECUTE));
    EXPECT_EQ(14, pathStat(dir, io::PATH_CAN_SEARCH | io::PATH_IS_DIR | io::PATH_CAN_EXECUTE));
    EXPECT_EQ(4, pathStat(make_file("program", 0755), 14));
}

TEST_F(PathStat, ReturnsZeroForAMissingPath)
{
    const String missing = in("missing");
    for (const bool no_perm_error : {false, true}) {
        for (int flags = 0; flags <= 63; ++flags) {
            EXPECT_EQ(0, pathStat(missing, flags, no_perm_error)) << flags;
        }
    }
    ASSERT_EQ(0, symlink("missing", in("dangling").c_str()));
    EXPECT_EQ(0, pathStat(in("dangling")));
    EXPECT_EQ(0, pathStat(make_file("file") + "/below"));
}

TEST_F(PathStat, PathWithAZeroByteDoesNotExist)
{
    const String file = make_file("file");
    const String zero(1, '\0');
    for (const String& path : {file + zero, file + zero + "x", zero, zero + file, scratch + zero}) {
        EXPECT_EQ(0, pathStat(path));
        EXPECT_EQ(0, pathStat(path, io::PATH_EXISTS, true));
        EXPECT_EQ("Invalid flags specified.", invalid_argument_of([&] { pathStat(path, 64); }));
    }
}

TEST_F(PathStat, FollowsLinks)
{
    make_dir("dir");
    ASSERT_EQ(0, symlink("dir", in("link").c_str()));
    EXPECT_EQ(63, pathStat(in("link")));
}

TEST_F(PathStat, EmptyPathThrows)
{
    const char* const null = nullptr;
    EXPECT_EQ("Specified path is nil.", invalid_argument_of([&] { pathStat(null); }));
    EXPECT_EQ("Specified path is nil.", invalid_argument_of([] { pathStat(""); }));
    EXPECT_EQ("Specified path is nil.", invalid_argument_of([] { pathStat(String()); }));
    // The path is checked before the flags.
    EXPECT_EQ("Specified path is nil.", invalid_argument_of([] { pathStat("", 64, false); }));
}

TEST_F(PathStat, DoesNotTrim)
{
    EXPECT_EQ(0, pathStat(" "));
    EXPECT_EQ(0, pathStat(" " + scratch));
    EXPECT_EQ(0, pathStat("\"" + scratch + "\""));
    EXPECT_EQ(2, pathStat("/", io::PATH_IS_DIR));
}

TEST_F(PathStat, UnknownFlagsThrowForAnyPath)
{
    const String too_long(5000, 'n');
    for (const int flags : {64, 65, 127, -1, -64, 1 << 30}) {
        EXPECT_EQ("Invalid flags specified.", invalid_argument_of([&] { pathStat(scratch, flags, false); }));
        EXPECT_EQ("Invalid flags specified.",
                  invalid_argument_of([&] { pathStat(too_long.c_str(), flags, true); }));
    }
}

TEST_F(PathStat, ReturnsTheRightsOfTheEffectiveUser)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs to drop rights";
    }
    const String readable = make_file("readable", 0644);
    const String closed = make_file("closed", 0600);
    const String runnable = make_file("runnable", 0711);
    const String writable = make_file("writable", 0622);
    const String listed = make_dir("listed", 0744);
    const String entered = make_dir("entered", 0711);
    const String shut = make_dir("shut", 0700);

    const AsNobody nobody;
    EXPECT_EQ(17, pathStat(readable));
    EXPECT_EQ(1, pathStat(closed));
    EXPECT_EQ(1, pathStat(closed, io::PATH_CAN_READ));
    EXPECT_EQ(5, pathStat(runnable));
    EXPECT_EQ(33, pathStat(writable));
    EXPECT_EQ(1 + 2 + 16, pathStat(listed));
    EXPECT_EQ(1 + 2 + 4 + 8, pathStat(entered));
    EXPECT_EQ(1 + 2, pathStat(shut));
    EXPECT_EQ(2, pathStat(shut, 14));
}

TEST_F(PathStat, InaccessiblePathReturnsMinusOneOrThrows)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs to drop rights";
    }
    make_dir("locked", 0700);
    const String hidden = make_file("locked/file");
    const AsNobody nobody;
    EXPECT_EQ(-1, pathStat(hidden));
    EXPECT_EQ(-1, pathStat(hidden, io::PATH_EXISTS, false));
    EXPECT_EQ(-1, pathStat(in("locked/missing"), 0, false));
    expect_system_error(13, "Error checking access on '" + hidden + "': Permission denied",
                        [&] { pathStat(hidden, 0, true); });
    expect_system_error(13, "Error checking access on '" + hidden + "': Permission denied",
                        [&] { pathStat(hidden.c_str(), io::PATH_IS_DIR, true); });
}

TEST_F(PathStat, OtherFailuresThrow)
{
    const String too_long = in(String(256, 'n'));
    ASSERT_EQ(0, symlink("loop", in("loop").c_str()));
    for (const bool no_perm_error : {false, true}) {
        expect_system_error(36, "Error checking access on '" + too_long + "': File name too long",
                            [&] { pathStat(too_long, 0, no_perm_error); });
        expect_system_error(
            40, "Error checking access on '" + in("loop") + "': Too many levels of symbolic links",
            [&] { pathStat(in("loop"), 0, no_perm_error); });
    }
}

#ifndef IO_STATIC_LIBRARY
TEST_F(PathStat, DistinguishesTheErrorsOfTheSystem)
{
    const String file = make_file("file");
    qv_err_t answer = 0;
    looked_at = [&] { return answer; };

    // Only this result determines whether the path exists; the rights are checked separately.
    answer = 2;
    EXPECT_EQ(0, pathStat(file, 0, true));
    answer = 13;
    EXPECT_EQ(-1, pathStat(file, 0, false));
    answer = 0;
    EXPECT_EQ(3 + 16 + 32, pathStat(file));
    answer = 20;
    EXPECT_EQ(1 + 4 + 16 + 32, pathStat(scratch));
    for (const bool no_perm_error : {false, true}) {
        answer = 5;
        expect_system_error(5, "Error checking access on '" + file + "': Input/output error",
                            [&] { pathStat(file, 0, no_perm_error); });
        answer = -1;
        expect_system_error(-1, "Error checking access on '" + file + "': Unknown error -1",
                            [&] { pathStat(file, 0, no_perm_error); });
    }

    bool asked = false;
    looked_at = [&] {
        asked = true;
        return qv_err_t(0);
    };
    EXPECT_EQ("Invalid flags specified.", invalid_argument_of([&] { pathStat(file, 64, false); }));
    EXPECT_FALSE(asked);
}
#endif

TEST_F(PathStat, FunctionIsNamedInTheTrace)
{
    try {
        pathStat(String(5000, 'n'));
        FAIL();
    } catch (const system_error& failure) {
        ASSERT_EQ(1U, failure.trace().size());
        EXPECT_EQ(0U, failure.trace()[0].find("com.kor.dal.nim.io.pathStat():"));
    }
}

}
