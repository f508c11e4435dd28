#include "ToolFixture.hpp"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

/** Logs whose files have names, or a form, that other programs give them. */
class NimlogRotatedTest : public ToolFixture
{
protected:
    Result run(const std::string& arguments) const
    {
        return shell("exec timeout 60 '" NIMLOG_PROGRAM "' --mask SEVERITY " + arguments);
    }
};

TEST_F(NimlogRotatedTest, CompressedFilesAreReadInTheOrderOfTheirNumbers)
{
    write("app.log.10", "INFO : 10\n");
    write("app.log.9", "INFO : 9\nmore\n");
    write("app.log.3", "INFO : 3\n");
    write("app.log.2", "INFO : 2 without newline");
    write("app.log.1", "INFO : 1\n");
    write("app.log.0", "INFO : 0\n");
    write("app.log", "INFO : live\n");
    shell("gzip app.log.10 app.log.2; xz app.log.9 app.log.0");
    const std::string all =
        "INFO : 10\nINFO : 9\nmore\nINFO : 3\nINFO : 2 without newline\nINFO : 1\nINFO : 0\nINFO : live\n";
    expectResult(run("app.log"), 0, all, "");
    expectResult(run("--count severity app.log"), 0, "         7 INFO\n", "");
    // Neither a live file nor any other uncompressed file is required.
    shell("rm app.log app.log.1 app.log.3");
    expectResult(run("app.log"), 0, "INFO : 10\nINFO : 9\nmore\nINFO : 2 without newline\nINFO : 0\n", "");
    expectResult(shell("'" NIMLOG_PROGRAM "' --mask SEVERITY \"$PWD/app.log\" | tail -n 1"), 0, "INFO : 0\n",
                 "");
}

TEST_F(NimlogRotatedTest, DatedFilesAreReadInTheOrderOfTheirDates)
{
    for (const char* const date : {"20251231", "20261101-1793491205", "20261102", "2026110300", "2026110313",
                                   "20261103-150520", "2026-11-04", "20261105"}) {
        write(std::string("app.log-") + date, std::string("INFO : ") + date + '\n');
    }
    write("app.log.1", "INFO : numbered\n");
    write("app.log", "INFO : live\n");
    // These files do not belong to the log.
    for (const char* const name :
         {"app.log-", "app.log-x", "app.log-20261301", "app.log-20260230", "app.log-2026111",
          "app.log-202611051", "app.log-20261105-", "app.log-20261105x", "app.log-2026-1105",
          "app.log-202611-05", "app.log.gz", "app.log-20261105.bz2", "app.log-20261105.gz.x",
          "app.log--0261105", "app.log-20261105-15052x", "app.log-20261105-99999999999999999999"}) {
        write(name, "INFO : foreign\n");
    }
    shell("gzip app.log-20261102; xz app.log-2026110313");
    expectResult(run("app.log"), 0,
                 "INFO : 20251231\nINFO : 20261101-1793491205\nINFO : 20261102\nINFO : 2026110300\n"
                 "INFO : 2026110313\nINFO : 20261103-150520\nINFO : 2026-11-04\nINFO : 20261105\n"
                 "INFO : numbered\nINFO : live\n",
                 "");
}

/** As while a program compresses the file. */
TEST_F(NimlogRotatedTest, CompressedCopyOfAFileIsNotRead)
{
    write("app.log.1", "INFO : first\n");
    write("app.log-20261114", "INFO : dated\n");
    write("app.log", "INFO : second\n");
    shell("gzip -k app.log-20261114; head -c 7 /dev/zero >app.log.1.xz");
    expectResult(run("app.log"), 0, "INFO : dated\nINFO : first\nINFO : second\n", "");
}

TEST_F(NimlogRotatedTest, CompressedFileMayBeNamed)
{
    write("app.log.1", "INFO : first\nERROR : second\n");
    shell("gzip app.log.1; xz -k app.log.1.gz; mv app.log.1.gz.xz other.xz");
    expectResult(run("-s error app.log.1.gz"), 0, "ERROR : second\n", "");
    EXPECT_EQ(run("other.xz").status, 1);
    expectResult(run("missing.gz"), 2, "", "nimlog: cannot read missing.gz: No such file or directory\n");
    expectResult(run("--follow app.log.1.gz"), 2, "",
                 "nimlog: --follow requires a log: app.log.1.gz is a compressed file\n");
    shell("mkfifo pipe.gz");
    expectResult(run("pipe.gz"), 2, "",
                 "nimlog: pipe.gz: skipped, because it is a FIFO\n"
                 "nimlog: cannot read pipe.gz: No such file or directory\n");
}

TEST_F(NimlogRotatedTest, ProgramThatIsNotInstalledIsNamed)
{
    write("app.log.1", "INFO : first\n");
    write("app.log", "INFO : second\n");
    shell("xz app.log.1");
    expectResult(shell("PATH=/nonexistent '" NIMLOG_PROGRAM "' --mask SEVERITY app.log"), 2, "",
                 "nimlog: cannot read app.log.1.xz: the program xz is not installed\n");
    shell("xz -dc app.log.1.xz | gzip >app.log.1.gz; rm app.log.1.xz");
    expectResult(shell("PATH=/nonexistent '" NIMLOG_PROGRAM "' --mask SEVERITY app.log"), 2, "",
                 "nimlog: cannot read app.log.1.gz: the program gzip is not installed\n");
}

TEST_F(NimlogRotatedTest, DamagedCompressedFileIsReportedAfterItsRecords)
{
    std::string text;
    for (int number = 0; number < 20000; ++number) {
        text += "INFO : " + std::to_string(number * 7919 % 20011) + '\n';
    }
    write("app.log.1", text);
    write("app.log", "INFO : live\n");
    shell("gzip app.log.1; truncate -s 20000 app.log.1.gz");
    const Result result = run("app.log");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.output, testing::StartsWith(text.substr(0, 20000)));
    // The newer files are read, too.
    EXPECT_THAT(result.output, testing::EndsWith("\nINFO : live\n"));
    EXPECT_THAT(result.errors,
                testing::EndsWith("nimlog: cannot read app.log.1.gz: gzip failed with status 1\n"));
    // Bytes after the compressed ones are only worth a warning of the program.
    write("app.log.1", "INFO : first\n");
    shell("rm app.log.1.gz; gzip app.log.1; echo x >>app.log.1.gz");
    const Result warned = run("app.log");
    EXPECT_EQ(warned.status, 0);
    EXPECT_EQ(warned.output, "INFO : first\nINFO : live\n");
}

TEST_F(NimlogRotatedTest, ProgramIsEndedIfItsOutputIsNotReadToTheEnd)
{
    write("app.log.1.gz", "");
    write("gzip", "#!/bin/sh\necho $$ >pid\necho 'INFO : first'\nexec yes 'INFO : next'\n");
    expectResult(shell("chmod 755 gzip; PATH=$PWD:$PATH timeout 60 '" NIMLOG_PROGRAM
                       "' --mask SEVERITY app.log >/dev/full; echo $?; kill -0 $(cat pid) 2>/dev/null"),
                 1, "2\n", "nimlog: cannot write to standard output: No space left on device\n");
    write("gzip", "#!/bin/sh\necho 'INFO : first'\nkill -KILL $$\n");
    expectResult(shell("PATH=$PWD:$PATH '" NIMLOG_PROGRAM "' --mask SEVERITY app.log"), 2, "INFO : first\n",
                 "nimlog: cannot read app.log.1.gz: gzip was ended by signal 9\n");
}

TEST_F(NimlogRotatedTest, FailureOfTheSystemToStartAProgramIsReported)
{
    write("app.log.1", "INFO : first\n");
    shell("gzip app.log.1");
    // The loader fails below some limit; above another one, there are enough descriptors.
    bool hasFailed = false;
    bool hasSucceeded = false;
    for (int limit = 4; !hasSucceeded && limit < 30; ++limit) {
        const Result result = shell("ulimit -n " + std::to_string(limit)
                                    + "; exec '" NIMLOG_PROGRAM "' --mask SEVERITY app.log");
        hasSucceeded = result.status == 0;
        if (hasSucceeded) {
            EXPECT_EQ(result.output, "INFO : first\n");
        } else if (result.status == 2) {
            EXPECT_EQ(result.output, "");
            EXPECT_EQ(result.errors, "nimlog: cannot read app.log.1.gz: Too many open files\n");
            hasFailed = true;
        }
    }
    EXPECT_TRUE(hasFailed);
    EXPECT_TRUE(hasSucceeded);
    // A program without the permission to execute it.
    shell("mkdir bin; touch bin/gzip");
    expectResult(shell("PATH=$PWD/bin '" NIMLOG_PROGRAM "' --mask SEVERITY app.log"), 2, "",
                 "nimlog: cannot read app.log.1.gz with gzip: Permission denied\n");
}

/** At each call by which nimlog searches the files, and with the compression at each later one. */
TEST_F(NimlogRotatedTest, RotationAndCompressionDuringTheSearchLoseAndRepeatNoRecord)
{
#ifdef COMPRESS_AT_CALL
    const std::string all = "INFO : first\nINFO : second\nINFO : third\n";
    write("gz.1", "INFO : second\n");
    write("gz.2", "INFO : first\n");
    write("gz.ready", "INFO : third\n");
    shell("gzip gz.1 gz.2 gz.ready");
    const std::string first = support::readFile(directory.file("gz.2.gz"));
    const std::string second = support::readFile(directory.file("gz.1.gz"));
    const std::string third = support::readFile(directory.file("gz.ready.gz"));
    int rotation = 0;
    for (bool isReached = true; isReached;) {
        ++rotation;
        for (int distance : {0, 1, 4}) {
            std::filesystem::remove(directory.file("app.log.3.gz"));
            write("app.log.2.gz", first);
            write("app.log.1.gz", second);
            write("app.log.ready", third);
            std::filesystem::remove(directory.file("app.log.1"));
            write("app.log", "INFO : third\n");
            write("app.log.arm", "");
            const Result result = shell("ROTATE_LOG=app.log ROTATE_CALL=" + std::to_string(rotation)
                                        + " COMPRESS_CALL=" + std::to_string(rotation + distance)
                                        + " LD_PRELOAD='" COMPRESS_AT_CALL "' exec '" NIMLOG_PROGRAM
                                          "' --mask SEVERITY app.log");
            ASSERT_EQ(result.output, all)
                << "rotation at " << rotation << ", compression " << distance << " later";
            ASSERT_EQ(result.errors, "");
            ASSERT_EQ(result.status, 0);
            isReached = !std::filesystem::exists(directory.file("app.log.arm"));
        }
    }
    EXPECT_GT(rotation, 10);
#else
    GTEST_SKIP() << "a library cannot be loaded before the sanitizer";
#endif
}

/** The files that the real program leaves, under its usual configurations. */
class NimlogLogrotateTest : public NimlogRotatedTest, public testing::WithParamInterface<const char*>
{
protected:
    void SetUp() override
    {
        if (shell("PATH=$PATH:/usr/sbin:/sbin logrotate --version").status != 0) {
            GTEST_SKIP() << "logrotate is not installed";
        }
    }
};

TEST_P(NimlogLogrotateTest, ItsFilesAreReadInOrder)
{
    write("rotate.conf",
          directory.file("app.log") + " {\n su root root\n rotate 9\n " + GetParam() + "\n}\n");
    // A second in the name of a file can be used only one time, and the clock that names it may be a tick
    // slower than that of date: a rotation that is refused for its name is repeated.
    const Result rotation = shell(
        "chmod 755 .; chmod 644 rotate.conf; for number in 1 2 3 4; do echo \"INFO : $number\" >>app.log; "
        "until PATH=$PATH:/usr/sbin:/sbin logrotate -f -s status rotate.conf 2>errors; do "
        "grep -q 'already exists, skipping rotation' errors || { cat errors; exit 1; }; sleep 0.05; done; "
        "done");
    ASSERT_EQ(rotation.status, 0) << rotation.output;
    write("app.log", "INFO : live\n");
    EXPECT_EQ(shell("ls app.log?* | wc -l").output, "4\n");
    expectResult(run("app.log"), 0, "INFO : 1\nINFO : 2\nINFO : 3\nINFO : 4\nINFO : live\n", "");
}

INSTANTIATE_TEST_SUITE_P(Configurations, NimlogLogrotateTest,
                         testing::Values("compress", "compress\n delaycompress", "nocompress",
                                         "compress\n dateext\n dateformat -%Y%m%d-%s",
                                         "dateext\n dateformat -%Y%m%d-%s",
                                         "compress\n compresscmd /usr/bin/xz\n compressext .xz"));

}
