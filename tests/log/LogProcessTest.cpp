// What the log does in a process as it starts, forks and exits: each test runs LogProbe.cpp.

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include "support/ChildProcess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <sstream>

namespace {

using namespace logtest;
using logfiletest::contentOf;
using logfiletest::Folder;
using support::ChildProcess;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

/** A line of the default format, less the text: of `module`, at `severity`. */
String prefix(const String& module, const String& severity)
{
    return "[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] UTC [0-9]+ [^ ]+ "
           "log_probe "
           "[0-9]+ [0-9]+ "
           + module + ' ' + severity + " LogProbe\\.cpp [0-9]+ : ";
}

String headerLine()
{
    return "[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] UTC [0-9]+ [^ ]+ "
           "log_probe "
           "[0-9]+ [0-9]+ com\\.kor\\.dal\\.nim\\.log\\.internal INFO Write: Log Configuration:\n";
}

const char BLOCK[] =
    "\tOutputPath:   \"STDERR\"\n"
    "\tOutputMask:   0x3ff \\[DATETIME,TIMEZONE,SEVERITY,HOSTNAME,PROCESSNAME,PROCESSID,THREADID,"
    "MODULENAME,SOURCEFILE,LINENUMBER\\]\n"
    "\tSeverityMin:  NOTICE\n"
    "\tModuleFilter: \\*\n";

class LogProcess : public testing::Test
{
protected:
    /** Runs the probe to its end. */
    ChildProcess& probe(std::vector<String> arguments)
    {
        arguments.insert(arguments.begin(), DALNIM_LOG_PROBE);
        child.emplace(arguments, folder.path());
        EXPECT_EQ(0, child->wait()) << child->errors().substr(0, 10000);
        return *child;
    }

    const Folder folder;
    std::optional<ChildProcess> child;
};

TEST_F(LogProcess, StartsWithTheModulesOfTheLibrary)
{
    EXPECT_EQ("global\n"
              "com.kor.dal.nim.log.internal\n"
              "com.kor.dal.nim\n"
              "probe.static.with.a.name.that.is.too.long.for.a.short.string\n",
              probe({"modules"}).output());
}

TEST_F(LogProcess, LogsToStandardErrorAfterItsConfiguration)
{
    const ChildProcess& run = probe({"log"});
    EXPECT_THAT(run.errors(), MatchesRegex(headerLine() + BLOCK + prefix("global", "NOTICE") + "first\n"
                                           + prefix("global", "FATAL") + "second\n"));
    EXPECT_EQ("", run.output());
}

TEST_F(LogProcess, LogsBeforeMain)
{
    ::setenv("PROBE_EARLY", "1", 1);
    const ChildProcess& run = probe({"log"});
    ::unsetenv("PROBE_EARLY");
    EXPECT_THAT(run.errors(), MatchesRegex(headerLine() + BLOCK + prefix("global", "WARNING")
                                           + "before main\n" + prefix("global", "NOTICE") + "first\n"
                                           + prefix("global", "FATAL") + "second\n"));
}

TEST_F(LogProcess, LogsFromExitHandlersAndStaticDestructors)
{
    const ChildProcess& run = probe({"exit"});
    EXPECT_THAT(
        run.errors(),
        MatchesRegex(
            headerLine() + BLOCK
            + prefix("probe\\.static\\.with\\.a\\.name\\.that\\.is\\.too\\.long\\.for\\.a\\.short\\.string",
                     "WARNING")
            + "from main\n" + prefix("global", "WARNING") + "from an exit handler\n"
            + prefix("global", "WARNING") + "from a static destructor\n" + prefix("probe\\.dynamic", "ERROR")
            + "under a module of its own\n"
            + ".* com\\.kor\\.dal\\.nim\\.log\\.internal INFO Write [0-9]+ : Changing logging setting: "
              "Severity\n"
              "\told: NOTICE\n\tnew: DEBUG\n"
            + prefix("global", "DEBUG") + "with another severity\n"));
}

TEST_F(LogProcess, LogsToAFileWhileItExits)
{
    probe({"exit", folder / "a.log"});
    const String text = contentOf(folder / "a.log");
    EXPECT_THAT(text, HasSubstr(" : from an exit handler\n"));
    EXPECT_THAT(text, HasSubstr(" : from a static destructor\n"));
    EXPECT_THAT(text, HasSubstr(" : with another severity\n"));
}

TEST_F(LogProcess, ExitsWhileOtherThreadsLog)
{
    for (const char* const name : {"a.log", "b.log", "c.log"}) {
        probe({"exit-while-logging", folder / name});
        EXPECT_THAT(contentOf(folder / name), HasSubstr(" : from a static destructor\n"));
    }
    probe({"exit-while-logging"});
}

TEST_F(LogProcess, LogsFromTheDestructorsOfAThread)
{
    EXPECT_THAT(probe({"thread-end"}).errors(),
                MatchesRegex(headerLine() + BLOCK + prefix("global", "WARNING") + "from the thread\n"
                             + prefix("global", "WARNING") + "from the thread's end\n"));
}

TEST_F(LogProcess, ForkedChildLogsItsOwnProcessAndThreadIDs)
{
    const ChildProcess& run = probe({"fork", folder / "a.log"});
    std::istringstream pids(run.output());
    String parent;
    String forked;
    ASSERT_TRUE(pids >> parent >> forked) << run.output();
    EXPECT_NE(parent, forked);
    EXPECT_THAT(contentOf(folder / "a.log"), testing::EndsWith(parent + ' ' + parent + " : parent\n" + forked
                                                               + ' ' + forked + " : child\n"));
}

/** Each child logs, whatever the other threads were in the middle of when it came into being. */
TEST_F(LogProcess, AChildThatIsForkedWhileOthersLogIsNotHeldUp)
{
    EXPECT_EQ("", probe({"fork-while-logging", folder / "a.log"}).output());
    const String text = contentOf(folder / "a.log");
    for (int i = 0; i < 100; ++i) {
        EXPECT_THAT(text, HasSubstr(" : child " + std::to_string(i) + '\n'));
    }
}

}
