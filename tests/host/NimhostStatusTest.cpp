#include "NimhostFixture.hpp"

#include <expat.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <regex>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using support::ChildProcess;
using support::readFile;
using support::writeFile;
using testing::HasSubstr;
using testing::Not;

/** The status page of a run. */
class NimhostStatusTest : public NimhostFixture
{
protected:
    const std::string page = scratch.file("page.html");

    /** Runs the host with a page to its end. Returns its standard output. */
    std::string run(const std::string& configuration, const std::string& records)
    {
        ChildProcess host(
            command({"--config", configuration, "--threads", "2", "--records", records, "--status", page}),
            scratch.path());
        EXPECT_EQ(host.wait(), 0);
        EXPECT_EQ(host.errors(), "");
        return host.output();
    }

    /** Returns the cells of all tables, by the text of the cell to their left. */
    static std::map<std::string, std::string> cells(const std::string& html)
    {
        static const std::regex row("<tr><td>([^<]*)</td><td>([^<]*)</td></tr>");
        std::map<std::string, std::string> found;
        for (auto at = std::sregex_iterator(html.begin(), html.end(), row); at != std::sregex_iterator();
             ++at) {
            found[(*at)[1]] = (*at)[2];
        }
        return found;
    }

    static std::string withoutCommas(std::string number)
    {
        number.erase(std::remove(number.begin(), number.end(), ','), number.end());
        return number;
    }

    static void expectWellFormed(const std::string& html)
    {
        const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr),
                                                                                  XML_ParserFree);
        EXPECT_EQ(XML_Parse(parser.get(), html.data(), static_cast<int>(html.size()), XML_TRUE),
                  XML_STATUS_OK)
            << XML_ErrorString(XML_GetErrorCode(parser.get())) << " at line "
            << XML_GetCurrentLineNumber(parser.get());
    }
};

TEST_F(NimhostStatusTest, ContainsTheSummaryAndThePlots)
{
    const std::string output =
        run(configure(fileSettings(LOG + "severity.id = INFO\n" + LOG + "maxFileSize = 20000\n")), "4000");
    const std::string html = readFile(page);
    expectWellFormed(html);

    std::map<std::string, std::string> numbers = cells(html);
    for (const char* label :
         {"tasks run", "tasks rejected (pool full)", "tasks that failed", "tasks with the wrong token",
          "longest wait (microseconds)", "sources that threw", "documents read", "documents rejected",
          "XML elements read", "source records written", "source records disabled", "log rotations"}) {
        EXPECT_EQ(withoutCommas(numbers[label]), std::to_string(tableRow(output, label))) << label;
    }
    EXPECT_EQ(numbers["tasks run"], "4,000");
    EXPECT_EQ(withoutCommas(numbers["host.log"]),
              std::to_string(std::filesystem::file_size(scratch.file("log/host.log"))));
    EXPECT_EQ(withoutCommas(numbers["host.log.0"]),
              std::to_string(std::filesystem::file_size(scratch.file("log/host.log.0"))));
    EXPECT_THAT(html, HasSubstr("<caption>Size in bytes of the log files in " + scratch.file("log")
                                + ", newest first</caption>"));

    EXPECT_THAT(html, HasSubstr("aria-label=\"Log records of the sources per second, at most "));
    EXPECT_THAT(html, HasSubstr("aria-label=\"Requests waiting for a worker, at most "));
    EXPECT_THAT(html, HasSubstr("aria-label=\"Log rotations so far, at most " + numbers["log rotations"]
                                + " rotations\""));
}

TEST_F(NimhostStatusTest, IsSelfContained)
{
    run(configure(fileSettings("")), "100");
    const std::string html = readFile(page);
    for (const char* reference : {"http:", "https:", "//", "src=", "href=", "@import", "url(", "<script"}) {
        EXPECT_THAT(html, Not(HasSubstr(reference)));
    }
    EXPECT_FALSE(std::filesystem::exists(page + ".new"));
}

TEST_F(NimhostStatusTest, MarkupInNamesIsEscaped)
{
    run(configure(LOG + "directory = a<b>&c\n" + LOG + "file = host.log\n"), "10");
    const std::string html = readFile(page);
    expectWellFormed(html);
    EXPECT_THAT(html, HasSubstr(scratch.file("a&lt;b&gt;&amp;c") + ", newest first"));
}

TEST_F(NimhostStatusTest, ListsNoFilesIfTheLogIsAStream)
{
    run(configure(LOG + "stream = STDOUT\n"), "10");
    const std::string html = readFile(page);
    expectWellFormed(html);
    EXPECT_THAT(html, Not(HasSubstr("Bytes of the log")));
}

TEST_F(NimhostStatusTest, ReloadsAutomaticallyDuringTheRun)
{
    const std::string file = configure(fileSettings(LOG + "severity.id = INFO\n"), "/source/rate = 200\n");
    ChildProcess host(command({"--config", file, "--seconds", "60", "--status", page}), scratch.path());
    ASSERT_TRUE(waitFor([&] {
        return std::filesystem::exists(page) && readFile(page).find("<rect x=") != std::string::npos;
    }));
    const std::string during = readFile(page);
    expectWellFormed(during);
    EXPECT_THAT(during, HasSubstr("<meta http-equiv=\"refresh\" content=\"1\"/>"));
    EXPECT_THAT(during, HasSubstr("<p>Running for "));

    host.signal(SIGTERM);
    ASSERT_EQ(host.wait(), 0);
    const std::string after = readFile(page);
    expectWellFormed(after);
    EXPECT_THAT(after, Not(HasSubstr("http-equiv")));
    EXPECT_THAT(after, HasSubstr("<p>Ran for "));
}

TEST_F(NimhostStatusTest, PathThatCannotBeWrittenIsRejected)
{
    const std::string file = configure(fileSettings(""));
    expectRejected({"--config", file, "--status", scratch.file("none/page.html")},
                   "nimhost: cannot write " + scratch.file("none/page.html") + ": No such file or directory");
    std::filesystem::create_directory(page);
    expectRejected({"--config", file, "--status", page},
                   "nimhost: cannot write " + page + ": Is a directory");
    EXPECT_FALSE(std::filesystem::exists(page + ".new"));
    const std::string pipe = scratch.file("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    expectRejected({"--config", file, "--status", pipe},
                   "nimhost: cannot write " + pipe + ": Invalid argument");
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    expectRejected({"--status"}, "nimhost: option --status requires a value");
    expectRejected({"--status", ""}, "nimhost: option --status requires a value");
}

TEST_F(NimhostStatusTest, SymbolicLinkIsFollowed)
{
    const std::string target = scratch.file("target.html");
    std::filesystem::create_symlink(target, page);
    run(configure(fileSettings("")), "10");
    EXPECT_TRUE(std::filesystem::is_symlink(page));
    EXPECT_TRUE(std::filesystem::is_regular_file(target));
    expectWellFormed(readFile(target));
}

TEST_F(NimhostStatusTest, SymbolicLinkUnderTheTemporaryNameIsNotFollowed)
{
    const std::string other = scratch.file("other");
    writeFile(other, "somebody's");
    std::filesystem::create_symlink(other, page + ".new");
    run(configure(fileSettings("")), "10");
    EXPECT_EQ(readFile(other), "somebody's");
    expectWellFormed(readFile(page));
    EXPECT_FALSE(std::filesystem::is_symlink(page));
    EXPECT_FALSE(std::filesystem::exists(page + ".new"));
}

TEST_F(NimhostStatusTest, OmitsEntriesThatAreNotFiles)
{
    std::filesystem::create_directory(scratch.file("log"));
    ASSERT_EQ(0, mkfifo(scratch.file("log/host.log").c_str(), 0600));
    const int reader = open(scratch.file("log/host.log").c_str(), O_RDONLY | O_NONBLOCK);
    const std::string output = run(configure(fileSettings("")), "1");
    close(reader);
    EXPECT_EQ(cells(readFile(page)).count("host.log"), 0U);
    EXPECT_EQ(tableRow(output, "  host.log"), std::string::npos);
}

TEST_F(NimhostStatusTest, FailedWriteIsLoggedAndTheRunContinues)
{
    const std::string file = configure(fileSettings(""), "/source/rate = 200\n");
    std::filesystem::create_directory(scratch.file("pages"));
    const std::string gone = scratch.file("pages/page.html");
    ChildProcess host(command({"--config", file, "--seconds", "60", "--status", gone}), scratch.path());
    ASSERT_TRUE(logHolds("nimhost starts with 4 sources"));
    std::filesystem::remove_all(scratch.file("pages"));
    ASSERT_TRUE(
        logHolds("the status page is out of date : cannot write " + gone + ": No such file or directory"));

    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.errors(), "nimhost: cannot write " + gone + ": No such file or directory\n");
    EXPECT_GT(tableRow(host.output(), "tasks run"), 0U);
}

}
