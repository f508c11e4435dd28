#include "ToolFixture.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <random>

namespace {

const char HEADING[] =
    "Sat Nov 14 15:05:20 UTC 2026 host01 my server 4711 4711 com.kor.dal.nim.log.internal INFO Write: "
    "Log Configuration:\n"
    "\tOutputPath:   \"app.log\"\n"
    "\tOutputMask:   0x3ff [DATETIME,TIMEZONE,SEVERITY,HOSTNAME,PROCESSNAME,PROCESSID,THREADID,MODULENAME,"
    "SOURCEFILE,LINENUMBER]\n"
    "\tSeverityMin:  NOTICE\n"
    "\tModuleFilter: *\n";
const char WARNING[] =
    "Sat Nov 14 15:05:20 UTC 2026 host01 my server 4711 4712 global WARNING Thread 251 : the text\n"
    " more\n"
    "\n"
    "   and more\n";
const char ERROR[] =
    "Sat Nov 14 16:59:59 +0100 2026 host01 my server 4711 4711 disks.sda ERROR Disk 7 : full\n";
const char REPORT[] = "com.kor.dal.nim.log.internal INFO : Changing logging setting: OutputMask\n"
                      "\told: 0x3ff [DATETIME,TIMEZONE]\n"
                      "\tnew: 0x84 [SEVERITY,MODULENAME]\n";
const char FATAL[] = "net FATAL : last\n";

const char LEFT_OUT[] =
    "nimlog: app.log: records left out because they lack a field that was filtered or counted by: 2\n";

class NimlogTest : public ToolFixture
{
protected:
    Result run(const std::string& arguments) const
    {
        return shell("exec '" NIMLOG_PROGRAM "' " + arguments);
    }

    /** Writes a log of three files, whose mask changes in the second one. */
    void writeSet() const
    {
        write("app.log.10", std::string(HEADING) + WARNING);
        write("app.log.2", std::string(ERROR) + REPORT);
        write("app.log", FATAL);
        // These files do not belong to the log.
        write("app.log.02", "02\n");
        write("app.log.x", "x\n");
        write("app.log.", "none\n");
        write("other.log.0", "other\n");
    }
};

TEST_F(NimlogTest, InvalidCommandLineIsRejectedWithOneLine)
{
    expectResult(run(""), 2, "", "nimlog: expected a FILE\n");
    expectResult(run("a b"), 2, "", "nimlog: cannot read a: No such file or directory\n");
    expectResult(run("-f -"), 2, "",
                 "nimlog: --follow requires a file: standard input is always read until it ends\n");
    expectResult(run("--bogus a"), 2, "", "nimlog: unknown option --bogus\n");
    expectResult(run("a --mask"), 2, "", "nimlog: option --mask requires a value\n");
    expectResult(run("-fx a"), 2, "", "nimlog: unknown option -x\n");
    expectResult(run("a -m"), 2, "", "nimlog: option -m requires a value\n");
    expectResult(
        run("-s loud a"), 2, "",
        "nimlog: \"loud\" is not a severity: use TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR or FATAL\n");
    expectResult(run("-m '[' a"), 2, "", "nimlog: \"[\" is not a valid module pattern\n");
    expectResult(run("-t 0x1 a"), 2, "", "nimlog: \"0x1\" is not a thread ID\n");
    expectResult(run("--since soon a"), 2, "",
                 "nimlog: \"soon\" is not a time: use 2026-11-14T15:05:20Z, 15:05, @1794668720 or 10m\n");
    for (const char* const option : {"--since", "--until"}) {
        for (const char* const time :
             {"", " ", "@", "2026-02-30", "2025-02-29T12:00", "2026-04-31 10:00:00", "1900-02-29",
              "2026-06-31T15:05:20+01:00", "Mon Feb 30 15:05:20 UTC 2026", "2026-11-00", "2026-13-01"}) {
            expectResult(run(std::string(option) + " '" + time + "' a"), 2, "",
                         std::string("nimlog: \"") + time
                             + "\" is not a time: use 2026-11-14T15:05:20Z, 15:05, @1794668720 or 10m\n");
        }
    }
    for (const char* const condition : {"", "user", "=17", "!=17", "1=2", "a b=c", "-x=1", "\xc3\xa9=1"}) {
        expectResult(run(std::string("--where '") + condition + "' a"), 2, "",
                     std::string("nimlog: \"") + condition
                         + "\" is not a condition: use NAME=VALUE or NAME!=VALUE\n");
    }
    expectResult(run("--grep 'disk(' a"), 2, "",
                 "nimlog: \"disk(\" is not a valid regular expression: Unmatched ( or \\(\n");
    for (const char* const number : {"", "-1", "+1", "2x", "99999999999999999999"}) {
        expectResult(run(std::string("--last '") + number + "' a"), 2, "",
                     std::string("nimlog: --last requires a number of records, not \"") + number + "\"\n");
    }
    expectResult(run("--count days a"), 2, "",
                 "nimlog: --count requires severity, module, source, thread or hour, not \"days\"\n");
    expectResult(run("--color red a"), 2, "",
                 "nimlog: --color requires auto, always or never, not \"red\"\n");
    expectResult(run("--mask DATE a"), 2, "",
                 "nimlog: \"DATE\" is not a field; a mask is NONE, ALL, a number up to 1023, or a list of "
                 "DATETIME,SEVERITY,HOSTNAME,PROCESSNAME,PROCESSID,THREADID,MODULENAME,SOURCEFILE,"
                 "LINENUMBER\n");
}

TEST_F(NimlogTest, PrintsVersionAndUsage)
{
    expectResult(run("--version"), 0, "nimlog (dalnim) " TOOLS_VERSION "\n", "");
    const Result help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, testing::StartsWith("usage: nimlog [OPTION]... FILE...\n"));
    EXPECT_EQ(help.errors, "");
}

TEST_F(NimlogTest, NamesTheFileThatCannotBeReadOrWritten)
{
    expectResult(run("missing"), 2, "", "nimlog: cannot read missing: No such file or directory\n");
    expectResult(run("."), 2, "", "nimlog: cannot read .: Is a directory\n");
    write("app.log", HEADING);
    expectResult(run("app.log >/dev/full"), 2, "",
                 "nimlog: cannot write to standard output: No space left on device\n");
}

TEST_F(NimlogTest, ReadsRotatedFilesFromTheOldestToTheNewest)
{
    writeSet();
    expectResult(run("app.log"), 0, std::string(HEADING) + WARNING + ERROR + REPORT + FATAL, "");
    // During a rotation, there may be no live file.
    shell("rm app.log");
    expectResult(run("app.log"), 0, std::string(HEADING) + WARNING + ERROR + REPORT, "");
    // A dangling link is not a file of the log.
    shell("ln -s nowhere app.log.99");
    expectResult(run("app.log"), 0, std::string(HEADING) + WARNING + ERROR + REPORT, "");
    expectResult(run("- < app.log.2"), 0, std::string(ERROR) + REPORT, "");
}

TEST_F(NimlogTest, RotatedFileThatIsNotRegularIsSkippedWithAMessage)
{
    write("app.log.5", "net FATAL : oldest\n");
    write("app.log.1", "net FATAL : old\n");
    write("app.log", "net FATAL : last\n");
    shell("mkfifo app.log.0 app.log.3 app.log.9; mkdir app.log.2; ln -s /dev/null app.log.4");
    const Result result = shell("exec timeout 20 '" NIMLOG_PROGRAM "' --mask 0x84 app.log");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "net FATAL : oldest\nnet FATAL : old\nnet FATAL : last\n");
    for (const char* const message : {"nimlog: app.log.0: skipped, because it is a FIFO\n",
                                      "nimlog: app.log.2: skipped, because it is a directory\n",
                                      "nimlog: app.log.3: skipped, because it is a FIFO\n",
                                      "nimlog: app.log.4: skipped, because it is not a regular file\n",
                                      "nimlog: app.log.9: skipped, because it is a FIFO\n"}) {
        EXPECT_THAT(result.errors, testing::HasSubstr(message));
    }
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 5) << result.errors;
}

TEST_F(NimlogTest, FifoUnderTheNameOfTheLogIsSkippedOnlyIfThereAreRotatedFiles)
{
    shell("mkfifo app.log");
    expectResult(shell("(echo 'net FATAL : piped' > app.log &); exec timeout 20 '" NIMLOG_PROGRAM
                       "' --mask 0x84 app.log"),
                 0, "net FATAL : piped\n", "");
    expectResult(shell("exec timeout 20 '" NIMLOG_PROGRAM "' --mask 0x84 <(echo 'net FATAL : piped')"), 0,
                 "net FATAL : piped\n", "");

    write("app.log.0", "net FATAL : old\n");
    expectResult(shell("exec timeout 20 '" NIMLOG_PROGRAM "' --mask 0x84 app.log"), 0, "net FATAL : old\n",
                 "nimlog: app.log: skipped, because it is a FIFO\n");
    shell("rm app.log app.log.0; mkfifo app.log.0");
    expectResult(shell("exec timeout 20 '" NIMLOG_PROGRAM "' --mask 0x84 app.log"), 2, "",
                 "nimlog: app.log.0: skipped, because it is a FIFO\n"
                 "nimlog: cannot read app.log: No such file or directory\n");
}

TEST_F(NimlogTest, MessageNamesTheRotatedFile)
{
    write("app.log.2", "net FATAL : oldest\n");
    write("app.log.1", "net FATAL : old\n");
    write("app.log", "net FATAL : last\n");
    shell("ln -sf /proc/self/mem app.log.1");
    // A regular file that cannot be read.
    expectResult(run("--mask 0x84 app.log"), 2, "", "nimlog: cannot read app.log.1: Input/output error\n");

    write("app.log.2", "a line\n");
    shell("rm app.log.1");
    expectResult(run("--mask 0x84 app.log"), 0, "a line\nnet FATAL : last\n",
                 "nimlog: app.log.2: lines before the first record that do not start with the "
                 "expected fields: 1; name them with --mask or --config\n");
}

TEST_F(NimlogTest, PrintsTheInputOfAnIdlePipeWithoutWaitingForMore)
{
    expectResult(shell("(echo 'INFO : a'; for i in {1..6000}; do [ ! -s shown ] || break; sleep 0.01; done;"
                       " cat shown; echo 'INFO : b')"
                       " | '" NIMLOG_PROGRAM "' --mask SEVERITY - >shown; cat shown"),
                 0, "INFO : a\nINFO : a\nINFO : b\n", "");
}

TEST_F(NimlogTest, AppendsAMissingLastNewline)
{
    write("app.log.0", "net FATAL : no newline");
    write("app.log", "net FATAL : second");
    expectResult(run("--mask MODULENAME,SEVERITY app.log"), 0, "net FATAL : no newline\nnet FATAL : second\n",
                 "");
}

TEST_F(NimlogTest, PrintsJson)
{
    writeSet();
    write("app.log", "net FATAL : \xff\xc3\xa9 \xe2\x82 \xed\xa0\x80 \xf0\x9f\x98\x80 \"\\\x01\x7f\t\r\n/\n");
    expectResult(
        run("--json app.log"), 0,
        "{\"time\":\"2026-11-14T15:05:20Z\",\"host\":\"host01\",\"process\":\"my server\",\"pid\":4711,"
        "\"thread\":4711,\"module\":\"com.kor.dal.nim.log.internal\",\"severity\":\"INFO\",\"text\":"
        "\"Log Configuration:\\n\\tOutputPath:   \\\"app.log\\\"\\n"
        "\\tOutputMask:   0x3ff [DATETIME,TIMEZONE,SEVERITY,HOSTNAME,PROCESSNAME,PROCESSID,THREADID,"
        "MODULENAME,SOURCEFILE,LINENUMBER]\\n\\tSeverityMin:  NOTICE\\n\\tModuleFilter: *\"}\n"
        "{\"time\":\"2026-11-14T15:05:20Z\",\"host\":\"host01\",\"process\":\"my server\",\"pid\":4711,"
        "\"thread\":4712,\"module\":\"global\",\"severity\":\"WARNING\",\"source\":\"Thread\",\"line\":251,"
        "\"text\":\"the text\\n more\\n\\n   and more\"}\n"
        "{\"time\":\"2026-11-14T16:59:59+01:00\",\"host\":\"host01\",\"process\":\"my server\",\"pid\":4711,"
        "\"thread\":4711,\"module\":\"disks.sda\",\"severity\":\"ERROR\",\"source\":\"Disk\",\"line\":7,"
        "\"text\":\"full\"}\n"
        "{\"module\":\"com.kor.dal.nim.log.internal\",\"severity\":\"INFO\",\"text\":"
        "\"Changing logging setting: OutputMask\\n\\told: 0x3ff [DATETIME,TIMEZONE]\\n"
        "\\tnew: 0x84 [SEVERITY,MODULENAME]\"}\n"
        "{\"module\":\"net\",\"severity\":\"FATAL\",\"text\":\"\xef\xbf\xbd\xc3\xa9 \xef\xbf\xbd "
        "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd \xf0\x9f\x98\x80 \\\"\\\\\\u0001\\u007f\\t\\r\\n/\"}\n",
        "");
}

TEST_F(NimlogTest, FiltersWholeRecords)
{
    writeSet();
    expectResult(run("--severity warning app.log"), 0, std::string(WARNING) + ERROR + FATAL, "");
    expectResult(run("-s FATAL app.log"), 0, FATAL, "");
    expectResult(run("-m 'disks.*' -m net app.log"), 0, std::string(ERROR) + FATAL, "");
    expectResult(run("-m disks app.log"), 0, "", "");
    expectResult(run("-t 4712 -t 5 app.log"), 0, WARNING, LEFT_OUT);
    expectResult(run("-s error -m 'd*' app.log"), 0, ERROR, "");
}

TEST_F(NimlogTest, SeverityMayHaveItsShortName)
{
    writeSet();
    for (const char* const name : {"warn", "WARN", "Warn"}) {
        expectResult(run(std::string("--severity ") + name + " app.log"), 0,
                     std::string(WARNING) + ERROR + FATAL, "");
    }
    for (const char* const name : {"err", "ERR"}) {
        expectResult(run(std::string("-s ") + name + " app.log"), 0, std::string(ERROR) + FATAL, "");
    }
    EXPECT_EQ(run("-s warnin app.log").status, 2);
}

TEST_F(NimlogTest, FiltersByTimeInAnyZone)
{
    write("app.log", std::string(WARNING) + ERROR);
    for (const char* const since :
         {"2026-11-14T15:05:21", "'2026-11-14 15:05:21'", "2026-11-14T16:05:21+01:00", "@1794668721",
          "2026-11-14T15:06", "'Sat Nov 14 15:59:59 UTC 2026'"}) {
        expectResult(run(std::string("app.log --since ") + since), 0, ERROR, "");
    }
    expectResult(run("app.log --since 2026-11-14T15:05:20Z"), 0, std::string(WARNING) + ERROR, "");
    expectResult(run("app.log --since 2026-11-14T16:00"), 0, "", "");
    expectResult(run("app.log --until 2026-11-14T15:05:20"), 0, WARNING, "");
    expectResult(run("app.log --until 2026-11-14"), 0, "", "");
    expectResult(run("app.log --since 2026-11-14 --until 2026-11-15"), 0, std::string(WARNING) + ERROR, "");
    expectResult(run("app.log --since 2000-02-29 --until 2028-02-29"), 0, std::string(WARNING) + ERROR, "");
    expectResult(run("app.log --since 2026-10-31 --until 2026-11-30T23:59"), 0, std::string(WARNING) + ERROR,
                 "");
}

TEST_F(NimlogTest, WhereSelectsRecordsByTheirFields)
{
    const std::string a = "INFO : login user=17 role=admin\n";
    const std::string b = "ERROR : payment failed user=17 reason=\"card \\\"x\\\" expired\"\n";
    const std::string c = "ERROR : logout user=170 empty=\"\"\n";
    const std::string d = "INFO : two lines\nuser=18 is one of user=17\n";
    const std::string e = "INFO : xuser=17 user=\"1\n";
    write("app.log", a + b + c + d + e);
    const auto where = [this](const std::string& arguments) {
        const Result result = run("--mask SEVERITY app.log --where " + arguments);
        EXPECT_EQ(result.errors, "");
        return result.output;
    };
    EXPECT_EQ(where("user=17"), a + b + d);
    EXPECT_EQ(where("user=18"), d);
    EXPECT_EQ(where("user=1"), "");
    EXPECT_EQ(where("user!=17"), c + e);
    EXPECT_EQ(where("user!=18"), a + b + c + e);
    EXPECT_EQ(where("'reason=card \"x\" expired'"), b);
    EXPECT_EQ(where("empty="), c);
    EXPECT_EQ(where("empty!="), a + b + d + e);
    EXPECT_EQ(where("user=17 -w role=admin"), a);
    EXPECT_EQ(where("user=17 -w role!=admin"), b + d);
    EXPECT_EQ(where("user=17 -w user=18"), d);
    EXPECT_EQ(where("user=17 --severity error"), b);
    EXPECT_EQ(where("user=17 --grep payment --count severity"), "         1 ERROR\n");
    EXPECT_EQ(where("none=1"), "");
    EXPECT_EQ(where("none!=1 -g login"), a);
}

TEST_F(NimlogTest, JsonContainsTheFieldsOfTheText)
{
    write("app.log", "INFO : login user=17 name=\"a\\n\\\"b\\x7f\" user=18\nINFO : a = b\nINFO : none\n");
    expectResult(
        run("--mask SEVERITY --json app.log"), 0,
        "{\"severity\":\"INFO\",\"text\":\"login user=17 name=\\\"a\\\\n\\\\\\\"b\\\\x7f\\\" user=18\","
        "\"fields\":{\"user\":\"17\",\"name\":\"a\\n\\\"b\\u007f\"}}\n"
        "{\"severity\":\"INFO\",\"text\":\"a = b\"}\n"
        "{\"severity\":\"INFO\",\"text\":\"none\"}\n",
        "");
    // Escapes of the log are undone before those of the field.
    write("escaped.log", "INFO : x name=\"a\\\\n\"\\nuser=17\n");
    expectResult(run("--mask SEVERITY --unescape --where user=17 --json escaped.log"), 0,
                 "{\"severity\":\"INFO\",\"text\":\"x name=\\\"a\\\\n\\\"\\nuser=17\","
                 "\"fields\":{\"name\":\"a\\n\",\"user\":\"17\"}}\n",
                 "");
}

TEST_F(NimlogTest, GrepSelectsRecordsByTheirText)
{
    writeSet();
    expectResult(run("--grep 'the te' app.log"), 0, WARNING, "");
    expectResult(run("-g full -g last app.log"), 0, std::string(ERROR) + FATAL, "");
    expectResult(run("-g 'f[tuv]l+$' app.log"), 0, ERROR, "");
    // The prefix is not searched.
    expectResult(run("-g Disk app.log"), 0, "", "");
    expectResult(run("-g FULL app.log"), 0, "", "");
    expectResult(run("-i -g FULL -g 'L[A]ST' app.log"), 0, std::string(ERROR) + FATAL, "");
    expectResult(run("-g full --severity fatal app.log"), 0, "", "");
    expectResult(run("-g full --count severity app.log"), 0, "         1 ERROR\n", "");
    expectResult(run("-g '' app.log | wc -l"), 0, "14\n", "");
}

TEST_F(NimlogTest, GrepMatchesAtEachLineOfARecord)
{
    write("app.log", "ERROR : one\ntwo\nthree\nERROR : two lines\n");
    const std::string options = " --mask SEVERITY app.log";
    expectResult(run("-g '^two$'" + options), 0, "ERROR : one\ntwo\nthree\n", "");
    expectResult(run("-g '^one$'" + options), 0, "ERROR : one\ntwo\nthree\n", "");
    expectResult(run("-g '^two'" + options + " | wc -l"), 0, "4\n", "");
    expectResult(run("-g 'one.two'" + options), 0, "", "");
    expectResult(run("-g 'two[^x]three'" + options), 0, "", "");
}

TEST_F(NimlogTest, GrepForFixedStringsHasNoSpecialCharacters)
{
    write("app.log", std::string("ERROR : a.c[1]\nERROR : abc1\nERROR : zero ") + '\0' + "byte\nERROR : \n");
    const std::string options = " --mask SEVERITY app.log";
    expectResult(run("-F -g 'a.c[1]'" + options), 0, "ERROR : a.c[1]\n", "");
    expectResult(run("-F -i -g 'A.C['" + options), 0, "ERROR : a.c[1]\n", "");
    expectResult(run("-g 'a\\.c\\[1\\]'" + options), 0, "ERROR : a.c[1]\n", "");
    expectResult(run("-g 'a.c[1]'" + options), 0, "ERROR : abc1\n", "");
    expectResult(run("-g 'a\\wc'" + options), 0, "ERROR : abc1\n", "");
    const std::string zero = std::string("ERROR : zero ") + '\0' + "byte\n";
    expectResult(run("-g byte" + options), 0, zero, "");
    expectResult(run("-g 'by.e$'" + options), 0, zero, "");
    expectResult(run("-g '^$'" + options), 0, "ERROR : \n", "");
}

TEST_F(NimlogTest, LastSelectsTheLastOfTheFilteredRecords)
{
    writeSet();
    expectResult(run("--last 2 app.log"), 0, std::string(REPORT) + FATAL, "");
    expectResult(run("-n 2 -s warning app.log"), 0, std::string(ERROR) + FATAL, "");
    expectResult(run("-n 3 -s warning app.log"), 0, std::string(WARNING) + ERROR + FATAL, "");
    expectResult(run("-n 100 -s warning app.log"), 0, std::string(WARNING) + ERROR + FATAL, "");
    expectResult(run("-n 0 app.log"), 0, "", "");
    expectResult(run("-n 1 --json -s warning app.log"), 0,
                 "{\"module\":\"net\",\"severity\":\"FATAL\",\"text\":\"last\"}\n", "");
    expectResult(run("-n 2 --count severity app.log"), 0, "         1 FATAL\n         1 INFO\n", "");
    // The kept records are copies, which are used again.
    std::string text;
    for (int number = 0; number < 5000; ++number) {
        text += "ERROR : " + std::string(static_cast<std::size_t>(number * 7919 % 400), 'x')
                + std::to_string(number) + '\n';
    }
    write("long.log", text);
    const std::string end = text.substr(text.size() - 3000);
    const std::string lines = end.substr(end.find('\n') + 1);
    expectResult(run("--mask SEVERITY --color always -n "
                     + std::to_string(std::count(lines.begin(), lines.end(), '\n'))
                     + " long.log | sed 's/\x1b[^m]*m//g'"),
                 0, lines, "");
}

TEST_F(NimlogTest, CountsByTheRequestedField)
{
    writeSet();
    expectResult(run("--count severity app.log"), 0,
                 "         1 FATAL\n         1 ERROR\n         1 WARNING\n         2 INFO\n", "");
    expectResult(run("--count module app.log"), 0,
                 "         2 com.kor.dal.nim.log.internal\n         1 disks.sda\n         1 global\n"
                 "         1 net\n",
                 "");
    expectResult(
        run("--count source app.log"), 0, "         1 Disk 7\n         1 Thread 251\n",
        "nimlog: app.log: records left out because they lack a field that was filtered or counted by: 3\n");
    expectResult(run("--count source --json -t 4712 app.log"), 0, "{\"source\":\"Thread 251\",\"count\":1}\n",
                 LEFT_OUT);
    expectResult(run("--count thread app.log"), 0, "         2 4711\n         1 4712\n", LEFT_OUT);
    expectResult(run("--count hour app.log"), 0, "         3 2026-11-14T15:00Z\n", LEFT_OUT);
    expectResult(run("--count hour --json app.log"), 0, "{\"hour\":\"2026-11-14T15:00Z\",\"count\":3}\n",
                 LEFT_OUT);
    expectResult(run("--count thread --json -t 4712 app.log"), 0, "{\"thread\":4712,\"count\":1}\n",
                 LEFT_OUT);
}

TEST_F(NimlogTest, ColorsSeveritiesOnRequest)
{
    writeSet();
    expectResult(run("--color always -s error app.log"), 0,
                 "Sat Nov 14 16:59:59 +0100 2026 host01 my server 4711 4711 disks.sda "
                 "\x1b[31mERROR\x1b[0m Disk 7 : full\nnet \x1b[1;31mFATAL\x1b[0m : last\n",
                 "");
    expectResult(run("--color auto -s fatal app.log"), 0, FATAL, "");
    expectResult(shell("NO_COLOR=1 '" NIMLOG_PROGRAM "' --color always -s fatal app.log"), 0,
                 "net \x1b[1;31mFATAL\x1b[0m : last\n", "");
}

/** Runs nimlog with a terminal as its standard output. */
class NimlogTerminalTest : public NimlogTest
{
protected:
    void SetUp() override
    {
        if (std::system("script --version >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "no terminal is available";
        }
    }

    const std::string command =
        "script -qec \"'" NIMLOG_PROGRAM "' --mask 0x84 app.log\" /dev/null </dev/null";
};

TEST_F(NimlogTerminalTest, ControlBytesAreMadeVisible)
{
    write("app.log", "net NOTICE : \x1b[2J\x7f\x01\ttab \xc3\xa9\nline\n");
    EXPECT_EQ(shell("TERM=dumb " + command).output, "net NOTICE : ^[[2J^?^A\ttab \xc3\xa9\r\nline\r\n");
    expectResult(run("--mask 0x84 app.log"), 0, "net NOTICE : \x1b[2J\x7f\x01\ttab \xc3\xa9\nline\n", "");
}

TEST_F(NimlogTerminalTest, ControlCharactersAbove127AreMadeVisible)
{
    // U+009B as a byte and as UTF-8, U+0085, a letter that contains such a byte, an ill-formed sequence with
    // one.
    write("app.log", "net NOTICE : \x9b"
                     "2J \xc2\x9b"
                     "2J \xc2\x85 \xc3\x80 \xe2\x82 \xc2\xa0\n");
    EXPECT_EQ(shell("TERM=dumb " + command).output,
              "net NOTICE : M-^[2J M-^[2J M-^E \xc3\x80 \xe2M-^B \xc2\xa0\r\n");
}

TEST_F(NimlogTerminalTest, ControlCharactersAreMadeVisibleInEveryOutputForm)
{
    const auto onTerminal = [this](const std::string& arguments) {
        return shell("TERM=dumb script -qec \"'" NIMLOG_PROGRAM "' " + arguments + "\" /dev/null </dev/null")
            .output;
    };
    write("app.log", "n\x1b[2J\xc2\x9bt FATAL : \x1b\xc2\x9b\n");
    EXPECT_EQ(onTerminal("--mask 0x84 --count module app.log"), "         1 n^[[2JM-^[t\r\n");
    EXPECT_EQ(onTerminal("--mask 0x84 --json app.log"),
              "{\"module\":\"n\\u001b[2J\\u009bt\",\"severity\":\"FATAL\",\"text\":\"\\u001b\\u009b\"}\r\n");
    write("escaped.log", "n\\nx FATAL : \\x1b[2J\\rforged\n");
    EXPECT_EQ(onTerminal("--mask 0x84 --unescape escaped.log"), "n\r\nx FATAL : ^[[2J^Mforged\r\n");
    EXPECT_EQ(onTerminal("--mask 0x84 --unescape --count module escaped.log"), "         1 n^Jx\r\n");
    write("log.properties", "com.kor.dal.nim.log.Control.output.mask = \x1b[2J\n");
    EXPECT_THAT(onTerminal("--config log.properties app.log"),
                testing::StartsWith("nimlog: log.properties: \"^[[2J\" is not a field;"));
}

TEST_F(NimlogTerminalTest, UsesColorUnlessTheEnvironmentDisablesIt)
{
    write("app.log", FATAL);
    EXPECT_EQ(shell("TERM=xterm NO_COLOR= " + command).output, "net \x1b[1;31mFATAL\x1b[0m : last\r\n");
    EXPECT_EQ(shell("TERM=xterm NO_COLOR=1 " + command).output, "net FATAL : last\r\n");
    EXPECT_EQ(shell("TERM=dumb NO_COLOR= " + command).output, "net FATAL : last\r\n");
}

TEST_F(NimlogTest, UnescapeReplacesOnlyTheEscapesOfTheLog)
{
    write("app.log",
          "n\\x1bt FATAL : \\a\\b\\f\\n\\r\\v\\x00\\x7f\\\\n\t\\t\\q\\x4\\x1B\\X1b\\u0041\\\\\\\nmore\\\n"
          "plain ERROR : C:/new\n");
    const std::string text =
        std::string("\a\b\f\n\r\v") + '\0' + "\x7f\\n\t\\t\\q\\x4\\x1B\\X1b\\u0041\\\\\nmore\\\n";
    expectResult(run("--mask 0x84 --unescape app.log"), 0,
                 "n\x1bt FATAL : " + text + "plain ERROR : C:/new\n", "");
    expectResult(
        run("--mask 0x84 --unescape -m n$'\\e't -s error --json app.log"), 0,
        "{\"module\":\"n\\u001bt\",\"severity\":\"FATAL\",\"text\":\"\\u0007\\u0008\\u000c\\n\\r\\u000b"
        "\\u0000\\u007f\\\\n\\t\\\\t\\\\q\\\\x4\\\\x1B\\\\X1b\\\\u0041\\\\\\\\\\nmore\\\\\"}\n",
        "");
    expectResult(run("--mask 0x84 --unescape --color always -m 'n?t' app.log | head -n 1"), 0,
                 "n\x1bt \x1b[1;31mFATAL\x1b[0m : \a\b\f\n", "");
    // Without the option, nothing is unescaped.
    expectResult(run("--mask 0x84 --count module app.log"), 0, "         1 n\\x1bt\n         1 plain\n", "");
}

TEST_F(NimlogTest, MaskIsReadFromALogWithEscapedLineBreaks)
{
    std::string heading = HEADING;
    heading.pop_back();
    std::string report = REPORT;
    report.pop_back();
    for (std::string* const text : {&heading, &report}) {
        for (std::size_t at; (at = text->find('\n')) != std::string::npos;) {
            text->replace(at, 1, "\\n");
        }
        *text += '\n';
    }
    write("app.log", "x" + heading + ERROR + report + FATAL);
    expectResult(
        run("--mask MODULENAME -s info --unescape app.log"), 0, std::string(HEADING) + ERROR + REPORT + FATAL,
        "nimlog: app.log: lines before the first record that do not start with the expected fields: 1; "
        "name them with --mask or --config\n");
}

TEST_F(NimlogTest, MaskIsReadFromTheReportOfAReconfiguration)
{
    const std::string begin = "com.kor.dal.nim.log.internal INFO : Changing logging settings: Severity";
    const std::string others = "\n\tSeverity\n\t\told: NOTICE\n\t\tnew: DEBUG";
    const std::string mask =
        "\n\tOutputMask\n\t\told: 0x3ff [DATETIME,TIMEZONE]\n\t\tnew: 0x84 [SEVERITY,MODULENAME]";
    const std::string last = "\n\tMaxFileSize\n\t\told: \"0\"\n\t\tnew: \"1048576\"";
    const std::string report = begin + " OutputMask MaxFileSize" + others + mask + last;
    std::string escaped = report;
    for (std::size_t at; (at = escaped.find('\n')) != std::string::npos;) {
        escaped.replace(at, 1, "\\n");
    }
    write("app.log", HEADING + std::string(ERROR) + report + '\n' + FATAL);
    expectResult(run("-s info app.log"), 0, HEADING + std::string(ERROR) + report + '\n' + FATAL, "");
    expectResult(run("-s fatal app.log"), 0, FATAL, "");
    write("escaped.log", HEADING + std::string(ERROR) + escaped + '\n' + FATAL);
    expectResult(run("-s fatal escaped.log"), 0, FATAL, "");
    // Without a new mask, the old one remains in effect.
    write("other.log", HEADING + std::string(ERROR)
                           + "Sat Nov 14 17:00:00 UTC 2026 host01 my server 4711 4711 "
                             "com.kor.dal.nim.log.internal INFO Write 185 : "
                             "Changing logging settings: Severity"
                           + others + '\n' + WARNING);
    expectResult(run("-s warning other.log"), 0, std::string(ERROR) + WARNING, "");
}

TEST_F(NimlogTest, UsesTheMaskOfTheCommandLine)
{
    write("app.log", "WARNING 251 : a\nb\nERROR 1 : c\n");
    for (const char* const mask : {"SEVERITY,LINENUMBER", "'LINENUMBER SEVERITY'", "516", "0x204"}) {
        expectResult(run(std::string("-s error app.log --mask ") + mask), 0, "ERROR 1 : c\n", "");
    }
    write("none.log", " : a\nb\n : c\n");
    expectResult(run("--json --mask NONE none.log"), 0, "{\"text\":\"a\\nb\"}\n{\"text\":\"c\"}\n", "");
}

TEST_F(NimlogTest, UsesTheMaskOfAConfigurationFile)
{
    write("app.log", "WARNING 251 : a\nb\nERROR 1 : c\n");
    write("app.properties", "%pragma include \"log.properties\"\n");
    write("log.properties", "com.kor.dal.nim.log.Control.output.mask = SEVERITY LINENUMBER\n");
    expectResult(run("-s error --config app.properties app.log"), 0, "ERROR 1 : c\n", "");

    write("log.properties", "com.kor.dal.nim.log.Control.output.mask = LOUDNESS\n");
    EXPECT_THAT(run("--config log.properties app.log").errors,
                testing::StartsWith("nimlog: log.properties: \"LOUDNESS\" is not a field"));
    write("log.properties", "a=\\x\n");
    expectResult(run("--config log.properties app.log"), 2, "",
                 "nimlog: log.properties: ERROR: log.properties:1: End-of-line encountered in hex escape "
                 "sequence.\n");
    expectResult(run("--config missing app.log"), 2, "",
                 "nimlog: cannot read missing: No such file or directory\n");
    shell("mkfifo pipe");
    write("log.properties", "%pragma include \"pipe\"\n");
    expectResult(shell("exec timeout 20 '" NIMLOG_PROGRAM "' --config app.properties app.log"), 2, "",
                 "nimlog: log.properties:1: the included file pipe is a FIFO, which is not supported\n");
    write("none.properties", "");
    EXPECT_EQ(run("--config none.properties app.log").status, 1);
}

TEST_F(NimlogTest, WarnsAboutLinesWithUnexpectedFields)
{
    write("app.log", "WARNING 251 : a\nb\n");
    expectResult(run("app.log"), 1, "WARNING 251 : a\nb\n",
                 "nimlog: app.log: no line starts with the expected fields; name them with --mask or "
                 "--config\n");
    write("app.log", std::string("WARNING 251 : a\nb\n") + HEADING);
    expectResult(run("-s info app.log"), 0, HEADING,
                 "nimlog: app.log: lines before the first record that do not start with the "
                 "expected fields: 2; name them with --mask or --config\n");
    write("app.log", "");
    expectResult(run("app.log"), 0, "", "");
}

TEST_F(NimlogTest, InvalidDateIsNotAPrefix)
{
    for (const char* const date :
         {"Sat Nov 00 15:05:20 UTC 2026", "Mon Nov 31 15:05:20 UTC 2026", "Mon Feb 29 15:05:20 UTC 2027",
          "Sat Now 14 15:05:20 UTC 2026", "Sat Nov 14 24:05:20 UTC 2026", "Sat Nov 14 15:60:20 UTC 2026",
          "Sat Nov 14 15:05:61 UTC 2026", "Sat Nov 14 15:05:20 CET 2026", "Sat Nov 14 15:05:20 +01:0 2026",
          "Sat Nov 14 15:05:20 UTC 202"}) {
        write("app.log", std::string(date) + " : text\n");
        EXPECT_EQ(run("--mask DATETIME app.log").status, 1) << date;
    }
    write("app.log", "Tue Feb 29 23:59:60 -1130 2000 : text\n");
    expectResult(run("--mask DATETIME --json app.log --since @951910200 --until @951910200"), 0,
                 "{\"time\":\"2000-02-29T23:59:60-11:30\",\"text\":\"text\"}\n", "");
}

TEST_F(NimlogTest, RecordsAreNotSplitAtBufferBoundaries)
{
    std::string text;
    std::string counted;
    int records = 0;
    std::mt19937 random(1);
    while (text.size() < 2000000) {
        text += records % 2 == 0 ? "ERROR : " + std::to_string(records) : "INFO : odd";
        for (std::size_t lines = random() % 4; lines > 0; --lines) {
            text += '\n' + std::string(random() % 3000, 'x');
        }
        text += '\n';
        ++records;
    }
    write("app.log", text);
    EXPECT_TRUE(run("--mask SEVERITY app.log").output == text);
    expectResult(run("--mask SEVERITY -s error --json app.log | wc -l"), 0,
                 std::to_string((records + 1) / 2) + "\n", "");
    expectResult(run("--mask SEVERITY --count severity app.log | wc -l"), 0, "2\n", "");
}

std::string withoutNewlines(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

/** Returns a record of 15:05, without a newline. */
std::string recordAt(const char* second, const std::string& text)
{
    return std::string("Sat Nov 14 15:05:") + second
           + " UTC 2026 host01 server 4711 4711 net ERROR Net 7 : " + text;
}

/**
 * Whichever byte a process was killed after, the first record of the next process is found, except after a
 * fragment that ends like the introduction of a quotation.
 */
TEST_F(NimlogTest, RecordOfTheSameSecondAfterATruncatedRecordIsFound)
{
    const std::string torn = recordAt("20", "connection to db1 lost");
    std::string log = recordAt("20", "first") + '\n';
    std::string nextRecords;
    for (std::size_t length = 1; length <= torn.size(); ++length) {
        if (length < torn.find("connection") || torn[length - 1] != ' ') {
            const std::string next = recordAt("20", "started " + std::to_string(length)) + '\n';
            log += torn.substr(0, length) + next;
            nextRecords += next;
        }
    }
    write("app.log", log);
    expectResult(run("app.log | grep started"), 0, nextRecords, "");
}

TEST_F(NimlogTest, SeveralTruncatedRecordsInALineAreFound)
{
    const std::string torn = recordAt("20", "connection to db1 lost");
    const std::string next = recordAt("20", "started") + "\n x\n";
    write("app.log", "n lost" + next);
    const std::string message =
        "nimlog: app.log: lines before the first record that do not start with the expected fields: 1; "
        "name them with --mask or --config\n";
    expectResult(run("--severity error app.log"), 0, next, message);
    write("app.log", torn.substr(0, 20) + torn.substr(0, 90) + torn.substr(0, 80) + next);
    expectResult(run("app.log"), 0,
                 torn.substr(0, 20) + '\n' + torn.substr(0, 90) + '\n' + torn.substr(0, 80) + '\n' + next,
                 message);
}

TEST_F(NimlogTest, StreamHeaderAfterATruncatedRecordIsFoundWithAnyMask)
{
    write("app.log", "net FATAL : torn he" + std::string(HEADING) + WARNING);
    expectResult(run("--mask MODULENAME,SEVERITY -s warning app.log"), 0,
                 std::string("net FATAL : torn he\n") + WARNING, "");
}

TEST_F(NimlogTest, RecordThatQuotesAnotherOneIsNotSplit)
{
    for (const std::string& quoting :
         {recordAt("20", "the plug-in wrote: ") + recordAt("20", "hello"),
          recordAt("20", "\"") + recordAt("20", "hello") + '"', recordAt("20", "") + recordAt("19", "hello"),
          recordAt("20", "older:") + recordAt("19", "hello"),
          recordAt("20", "list\n> ") + recordAt("18", "hello"),
          recordAt("20", "at 15:05:20 : Sat Nov 14 15:05:21 UTC 2026 it ended")}) {
        write("app.log", quoting + "\n");
        expectResult(run("--json app.log | wc -l"), 0, "1\n", "");
        expectResult(run("app.log"), 0, quoting + "\n", "");
    }
    // Without a date, a record cannot be distinguished from text.
    write("app.log", "ERROR 7 : tornERROR 8 : next\n");
    expectResult(run("--mask SEVERITY,LINENUMBER --json app.log | wc -l"), 0, "1\n", "");
}

/** Text output is unchanged, JSON output is valid UTF-8. */
TEST_F(NimlogTest, AcceptsArbitraryBytes)
{
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    std::mt19937 random(20261114);
    const std::string log = std::string(HEADING) + WARNING + ERROR + REPORT + FATAL;
    for (int round = 0; round < 25; ++round) {
        std::string text;
        if (round % 5 == 0) {
            text.resize(random() % 600000);
            for (char& c : text) {
                c = static_cast<char>(random());
            }
        } else {
            while (text.size() < 20000) {
                text += log;
            }
            for (std::size_t changes = random() % 400; changes > 0; --changes) {
                const std::size_t at = random() % text.size();
                switch (random() % 4) {
                case 0:
                    text[at] = static_cast<char>(random());
                    break;
                case 1:
                    text.erase(at, random() % 40);
                    break;
                case 2:
                    text.insert(at, text.substr(random() % text.size(), random() % 200));
                    break;
                default:
                    text.insert(at, 1, " \n:\t0x["[random() % 7]);
                }
                text += 'x';
            }
        }
        write("app.log", text);
        const std::string mask = " --mask " + std::to_string(round % 2 == 0 ? 1023 : random() % 1024);
        const Result shown = run("app.log" + mask);
        EXPECT_LE(shown.status, 1) << shown.errors;
        // Newlines are added before a record inside a line, and after an unfinished line.
        EXPECT_GE(shown.output.size(), text.size()) << "round " << round;
        EXPECT_TRUE(withoutNewlines(shown.output) == withoutNewlines(text)) << "round " << round;

        const Result json = run("--json app.log" + mask);
        EXPECT_LE(json.status, 1) << json.errors;
        EXPECT_EQ(json.output.find('\0'), std::string::npos);
        EXPECT_NE(std::mbstowcs(nullptr, json.output.c_str(), 0), static_cast<std::size_t>(-1));
        EXPECT_LE(run("--count hour -m '*' app.log" + mask).status, 1);
    }
    std::setlocale(LC_CTYPE, "C");
}

}
