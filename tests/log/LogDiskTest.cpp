// A log on a small disk of its own that runs full and has room again.

#include "LogSet.hpp"

#include <support/OwnDisk.hpp>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

using namespace logfiletest;
using testing::HasSubstr;

/** A line of 100 bytes with its newline, "000123xxx...". */
String numbered(unsigned int number)
{
    return std::to_string(1000000 + number).substr(1) + String(93, 'x');
}

/** Returns how often a string occurs in another one. */
std::size_t occurrences(std::string_view part, std::string_view text)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

/** Runs bodies in a process that has a disk of its own, gone with it whatever becomes of the test. */
class LogDiskTest : public LogFileFixture
{
protected:
    void SetUp() override
    {
        if (const int error = support::ownDiskError(folder.path())) {
            GTEST_SKIP() << "no disk can be mounted: " << std::strerror(error);
        }
    }

    template <class Body>
    void onDisk(const String& size, Body body)
    {
        EXPECT_EQ(0, inChildProcess([&] {
                      ASSERT_TRUE(support::mountOwnDisk(folder.path(), size)) << std::strerror(errno);
                      body();
                      file->close();
                  }));
    }

    void fill(std::size_t left) const
    {
        support::fillDisk(ballast, left);
    }

    const String ballast = folder / "ballast";
};

TEST_F(LogDiskTest, EveryLineOfAFullDiskSurvivesAndTheFileContinuesWhenThereIsSpace)
{
    onDisk("size=64k", [this] {
        file->setPath(path);
        file->log("first");
        fill(8192);
        String refused;
        unsigned int n = 0;
        for (; refused.empty(); ++n) {
            ASSERT_LT(n, 1000u);
            file->log(numbered(n));
            refused = err.take();
        }
        EXPECT_EQ(WRITE_ERROR_MESSAGE + numbered(n - 1) + "\n", refused);
        const unsigned int firstRefused = n - 1;
        EXPECT_GE(firstRefused, 81u);
        for (const unsigned int end = n + 10; n < end; ++n) {
            file->log(numbered(n));
            EXPECT_EQ(WRITE_ERROR_MESSAGE + numbered(n) + "\n", err.take());
        }
        const String full = contentOf(path);
        std::filesystem::remove(ballast);
        file->log("room again");
        EXPECT_EQ("", err.take());
        // What the disk has accepted of the first line that it rejected is a line of its own.
        EXPECT_EQ(full + (full.back() == '\n' ? "" : "\n") + "room again\n", contentOf(path));
        for (unsigned int i = 0; i < n; ++i) {
            EXPECT_EQ(i < firstRefused ? 1u : 0u, occurrences(numbered(i) + "\n", full)) << i;
        }
    });
}

TEST_F(LogDiskTest, RecordWhoseNewlineAloneIsRejectedIsInTheFileOnly)
{
    onDisk("size=64k", [this] {
        const String page(4096, 'p');
        file->setPath(path);
        file->getStream();
        fill(page.size());
        file->log(page);
        EXPECT_EQ("", err.take());
        EXPECT_EQ(page, contentOf(path));
        file->log("next");
        EXPECT_EQ(WRITE_ERROR_MESSAGE + "next\n", err.take());
        std::filesystem::remove(ballast);
        file->log("last");
        EXPECT_EQ(page + "\nlast\n", contentOf(path));
    });
}

TEST_F(LogDiskTest, SetOfFilesThatFillsItsDiskLosesOnlyItsOldestFiles)
{
    constexpr std::size_t FILE_SIZE = 8000;
    onDisk("size=64k", [this] {
        open(FILE_SIZE, 3);
        // Room for two files and a half; four are allowed.
        fill(20480);
        for (unsigned int n = 0; n < 2000; ++n) {
            file->log(numbered(n));
        }
        const String output = err.take();
        EXPECT_THAT(output, HasSubstr(WRITE_ERROR_MESSAGE)) << "the disk was never full";
        EXPECT_THAT(output, testing::Not(HasSubstr("switchFile(): ERROR")));
        EXPECT_EQ(path, file->getPath());

        // Each record from the oldest one is there once: in a file, or after an error message.
        const String kept = wholeLog(path);
        bool begun = false;
        for (unsigned int n = 0; n < 2000; ++n) {
            const std::size_t inFiles = occurrences(numbered(n) + "\n", kept);
            const std::size_t onErr = occurrences(WRITE_ERROR_MESSAGE + numbered(n) + "\n", output);
            begun = begun || inFiles != 0;
            EXPECT_TRUE(inFiles + onErr == 1 || (!begun && inFiles + onErr == 0)) << n;
        }
        EXPECT_TRUE(begun);

        // With room for all, each line is in a file again, at the latest behind the next rotation.
        std::filesystem::remove(ballast);
        for (unsigned int n = 2000; n < 2200; ++n) {
            file->log(numbered(n));
        }
        err.take();
        for (unsigned int n = 2200; n < 2300; ++n) {
            file->log(numbered(n));
            EXPECT_EQ(1u, occurrences(numbered(n) + "\n", wholeLog(path))) << n;
        }
        EXPECT_THAT(err.take(), testing::Not(HasSubstr(WRITE_ERROR_MESSAGE)));
    });
}

TEST_F(LogDiskTest, RotationThatCannotOpenTheNewFilePrintsAnError)
{
    // The directory, the file and its three rotated files: one inode is missing.
    onDisk("size=64k,nr_inodes=4", [this] {
        open(200);
        unsigned int n = 0;
        for (; n < 4; ++n) {
            file->log(numbered(n));
        }
        EXPECT_THAT(err.take(), testing::Not(HasSubstr("ERROR")));
        for (; n < 6; ++n) {
            file->log(numbered(n));
        }
        EXPECT_THAT(err.take(), testing::EndsWith("LogFile:#:switchFile(): ERROR: Failed to open log file ["
                                                  + path + "]No space left on device\n"));
        expectStandardError();
        file->log(numbered(n));
        EXPECT_EQ(numbered(n) + "\n", err.take());

        // Without the inode there is no beginning either, and the path is forgotten again.
        file->setPath(path);
        err.take();
        EXPECT_ANY_THROW(file->log("lost"));
        file->log("next");
        EXPECT_EQ("next\n", err.take());

        std::filesystem::remove(old(2));
        file->setPath(path);
        err.take();
        file->log("room again");
        EXPECT_EQ("room again\n", contentOf(path));
        EXPECT_EQ(numbered(2) + "\n" + numbered(3) + "\n" + numbered(4) + "\n" + numbered(5) + "\n",
                  contentOf(old(1)) + contentOf(old(0)));
    });
}

}
