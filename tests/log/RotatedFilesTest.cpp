#include <dalnim/log/src/RotatedFiles.hpp>

#include "LogFileFixture.hpp"

#include <dalnim/sys/SysError.hpp>

#include <gmock/gmock.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::log::RotatedFiles;
using com::kor::dal::nim::sys::system_error;
using testing::ElementsAre;

class RotatedFilesTest : public testing::Test
{
protected:
    /** Creates files whose content names their ending; "" is the live file. */
    void createAll(const std::vector<String>& endings)
    {
        for (const String& ending : endings) {
            create(path + ending, "was " + ending);
        }
    }

    /** Returns the names and contents of all files, as "server.log.0=was .1". */
    std::vector<String> all() const
    {
        std::vector<String> result;
        for (const String& name : namesIn(folder.path())) {
            result.push_back(name + '=' + contentOf(folder / name));
        }
        return result;
    }

    Folder folder;
    const String path = folder / "log";
    const CapturedCerr err{};
    const RotatedFiles files{path};
};

TEST_F(RotatedFilesTest, CountIgnoresGapsAndOtherNames)
{
    createAll({"", ".0", ".3", ".20", ".x", "."});
    EXPECT_EQ(3u, files.count());
}

TEST_F(RotatedFilesTest, CountOfAMissingDirectoryIsZeroWithoutATrace)
{
    const String elsewhere = folder / "none/log";
    CapturedCerr traces;
    EXPECT_EQ(0u, RotatedFiles(elsewhere).count());
    EXPECT_EQ("", traces.take());
}

TEST_F(RotatedFilesTest, CountOfAnUnreadableDirectoryEndsAtTheFirstGap)
{
    createAll({"", ".0", ".1", ".3"});
    ASSERT_EQ(0, ::chmod(folder.path().c_str(), 0333));
    CapturedCerr traces;
    {
        const AsNobody nobody;
        EXPECT_EQ(2u, files.count());
    }
    EXPECT_EQ("LogFile:#:countLogFiles(): Failed to read the directory of [" + path
                  + "]: Permission denied\n",
              traces.take());
    ASSERT_EQ(0, ::chmod(folder.path().c_str(), 0755));
}

TEST_F(RotatedFilesTest, RotationIncrementsAllNumbers)
{
    createAll({"", ".0", ".1"});
    EXPECT_EQ(3u, files.rotate(2, 0));
    EXPECT_THAT(all(), ElementsAre("log.0=was ", "log.1=was .0", "log.2=was .1"));
}

TEST_F(RotatedFilesTest, RotationAtTheMaximumRemovesTheOldest)
{
    createAll({"", ".0", ".1"});
    EXPECT_EQ(2u, files.rotate(2, 2));
    EXPECT_THAT(all(), ElementsAre("log.0=was ", "log.1=was .0"));
}

TEST_F(RotatedFilesTest, RotationFillsTheFirstGapAndLeavesTheFilesAboveIt)
{
    createAll({"", ".0", ".1", ".3", ".4", ".9"});
    EXPECT_EQ(6u, files.rotate(5, 0));
    EXPECT_THAT(all(), ElementsAre("log.0=was ", "log.1=was .0", "log.2=was .1", "log.3=was .3",
                                   "log.4=was .4", "log.9=was .9"));
}

TEST_F(RotatedFilesTest, RotationWithoutNumberZeroRenamesOnlyTheLiveFile)
{
    createAll({"", ".1", ".2"});
    EXPECT_EQ(3u, files.rotate(2, 3));
    EXPECT_THAT(all(), ElementsAre("log.0=was ", "log.1=was .1", "log.2=was .2"));
}

TEST_F(RotatedFilesTest, RotationKeepsUncountedFiles)
{
    createAll({"", ".0", ".1", ".2"});
    EXPECT_EQ(1u, files.rotate(0, 5));
    EXPECT_THAT(all(), ElementsAre("log.0=was ", "log.1=was .0", "log.2=was .1", "log.3=was .2"));
}

TEST_F(RotatedFilesTest, RotationLeavesOtherNamesAlone)
{
    createAll({"", ".0", ".20261122", ".00", ".x", ".", ".1.gz"});
    EXPECT_EQ(3u, files.rotate(2, 0));
    EXPECT_THAT(all(), ElementsAre("log.=was .", "log.0=was ", "log.00=was .00", "log.1=was .0",
                                   "log.1.gz=was .1.gz", "log.20261122=was .20261122", "log.x=was .x"));
}

TEST_F(RotatedFilesTest, RotationWithoutALiveFileFails)
{
    createAll({".0"});
    try {
        files.rotate(1, 0);
        FAIL() << "nothing was missing";
    } catch (const system_error& error) {
        EXPECT_EQ(2, error.error());
        EXPECT_STREQ("Failed to move old log files: No such file or directory", error.what());
    }
    EXPECT_THAT(all(), ElementsAre("log.1=was .0"));
}

TEST_F(RotatedFilesTest, RemovalContinuesAfterAMissingFile)
{
    createAll({"", ".0", ".1", ".3"});
    files.remove(1, 3);
    EXPECT_THAT(all(), ElementsAre("log=was ", "log.0=was .0"));
}

}
