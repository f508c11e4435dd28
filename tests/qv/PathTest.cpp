#include <qv/pmx/path.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "Scratch.hpp"

namespace {

using qvtest::AsNobody;
using qvtest::Scratch;

TEST(IsDir, DistinguishesDirectoriesFromOtherFiles)
{
    const Scratch scratch;
    EXPECT_EQ(qv_si_isdir(scratch.directory("d").c_str()), 0);
    EXPECT_EQ(qv_si_isdir((scratch.path("d") + "/").c_str()), 0);
    EXPECT_EQ(qv_si_isdir("/"), 0);
    EXPECT_EQ(qv_si_isdir("."), 0);
    EXPECT_EQ(qv_si_isdir(scratch.file("f").c_str()), 20);
    EXPECT_EQ(qv_si_isdir("/dev/null"), 20);
    EXPECT_EQ(qv_si_isdir(scratch.path("missing").c_str()), 2);
    EXPECT_EQ(qv_si_isdir(scratch.path("missing/too").c_str()), 2);
    EXPECT_EQ(qv_si_isdir(""), 2);
}

TEST(IsDir, PathBelowAFileDoesNotExist)
{
    const Scratch scratch;
    EXPECT_EQ(qv_si_isdir((scratch.file("f") + "/below").c_str()), 2);
}

TEST(IsDir, FollowsLinks)
{
    const Scratch scratch;
    EXPECT_EQ(qv_si_isdir(scratch.link("to-directory", scratch.directory("d")).c_str()), 0);
    EXPECT_EQ(qv_si_isdir(scratch.link("to-file", scratch.file("f")).c_str()), 20);
    EXPECT_EQ(qv_si_isdir(scratch.link("to-nothing", scratch.path("missing")).c_str()), 2);
    EXPECT_EQ(qv_si_isdir(scratch.link("to-itself", scratch.path("to-itself")).c_str()), 40);
}

class IsDirAsNobody : public qvtest::NeedsRoot
{};

TEST_F(IsDirAsNobody, FailsIfADirectoryCannotBeSearched)
{
    const Scratch scratch;
    const std::string closed = scratch.directory("closed", 0700);
    scratch.file("closed/f");
    const AsNobody nobody;
    EXPECT_EQ(qv_si_isdir(closed.c_str()), 0);
    EXPECT_EQ(qv_si_isdir((closed + "/f").c_str()), 13);
    EXPECT_EQ(qv_si_isdir((closed + "/missing").c_str()), 13);
}

TEST(IsDir, ReturnsOtherErrorsUnchanged)
{
    EXPECT_EQ(qv_si_isdir(std::string(300, 'x').c_str()), 36);
    EXPECT_EQ(qv_si_isdir(nullptr), 22);
}

class RealPath : public testing::Test
{
protected:
    RealPath() : root(std::filesystem::canonical(scratch.path()).string()) {}

    const Scratch scratch;
    const std::string root;
};

TEST_F(RealPath, IsAbsoluteAndCanonical)
{
    scratch.directory("d");
    scratch.file("f");
    scratch.link("l", "d");
    char buffer[4096];
    EXPECT_EQ(qv_si_getrealpath(scratch.path("l/../d/.//../f").c_str(), sizeof buffer, buffer), 0);
    EXPECT_EQ(buffer, root + "/f");
    EXPECT_EQ(qv_si_getrealpath(scratch.path("l/").c_str(), sizeof buffer, buffer), 0);
    EXPECT_EQ(buffer, root + "/d");
    EXPECT_EQ(qv_si_getrealpath("/", sizeof buffer, buffer), 0);
    EXPECT_STREQ(buffer, "/");
    EXPECT_EQ(qv_si_getrealpath("/../..", sizeof buffer, buffer), 0);
    EXPECT_STREQ(buffer, "/");
}

TEST_F(RealPath, RelativePathStartsAtTheWorkingDirectory)
{
    char buffer[4096];
    EXPECT_EQ(qv_si_getrealpath(".", sizeof buffer, buffer), 0);
    EXPECT_EQ(buffer, std::filesystem::current_path().string());
}

TEST_F(RealPath, SucceedsIfTheResultFitsExactly)
{
    std::vector<char> buffer(root.size() + 2, 'x');
    EXPECT_EQ(qv_si_getrealpath(root.c_str(), root.size() + 1, buffer.data()), 0);
    EXPECT_EQ(buffer.data(), root);
    EXPECT_EQ(buffer.back(), 'x');
}

TEST_F(RealPath, TruncatesAndFailsIfTheResultDoesNotFit)
{
    std::vector<char> buffer(root.size() + 1, 'x');
    EXPECT_EQ(qv_si_getrealpath(root.c_str(), root.size(), buffer.data()), 34);
    EXPECT_EQ(buffer.data(), root.substr(0, root.size() - 1));
    EXPECT_EQ(buffer.back(), 'x');

    char one[2] = {'x', 'x'};
    EXPECT_EQ(qv_si_getrealpath("/", 1, one), 34);
    EXPECT_EQ(one[0], '\0');
    EXPECT_EQ(one[1], 'x');
}

TEST_F(RealPath, BufferIsEmptyAfterAFailure)
{
    char buffer[4096] = "before";
    EXPECT_EQ(qv_si_getrealpath(scratch.path("missing").c_str(), sizeof buffer, buffer), 2);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(qv_si_getrealpath((scratch.file("f") + "/below").c_str(), sizeof buffer, buffer), 20);
    EXPECT_EQ(qv_si_getrealpath(scratch.link("l", scratch.path("l")).c_str(), sizeof buffer, buffer), 40);
    EXPECT_EQ(qv_si_getrealpath("", sizeof buffer, buffer), 2);
}

TEST_F(RealPath, FailsIfAnArgumentIsNull)
{
    char buffer[2] = {'x', 'x'};
    EXPECT_EQ(qv_si_getrealpath(nullptr, sizeof buffer, buffer), 22);
    EXPECT_EQ(qv_si_getrealpath("/", 0, buffer), 22);
    EXPECT_EQ(qv_si_getrealpath("/", sizeof buffer, nullptr), 22);
    EXPECT_EQ(buffer[0], 'x');
}

}
