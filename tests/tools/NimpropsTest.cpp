#include "ToolFixture.hpp"

#include <gmock/gmock.h>

namespace {

class NimpropsTest : public ToolFixture
{
protected:
    Result run(const std::string& arguments) const
    {
        return shell("exec '" NIMPROPS_PROGRAM "' " + arguments);
    }
};

TEST_F(NimpropsTest, InvalidCommandLineIsRejectedWithOneLine)
{
    expectResult(run(""), 2, "", "nimprops: expected a command: check, print, get, instance or diff\n");
    expectResult(run("mend a"), 2, "", "nimprops: unknown command mend\n");
    expectResult(run("--bogus"), 2, "", "nimprops: unknown option --bogus\n");
    expectResult(run("print -x a"), 2, "", "nimprops: unknown option -x\n");
    expectResult(run("--help=me"), 2, "", "nimprops: option --help takes no value\n");
    expectResult(run("check"), 2, "", "nimprops: check requires the operands FILE...\n");
    expectResult(run("print a b"), 2, "", "nimprops: print requires the operands FILE\n");
    expectResult(run("get a"), 2, "", "nimprops: get requires the operands FILE KEY\n");
    expectResult(run("instance a"), 2, "",
                 "nimprops: instance requires the operands FILE [CLASS] INSTANCE\n");
    expectResult(run("diff a"), 2, "", "nimprops: diff requires the operands FILE FILE\n");
    expectResult(run("print --log a"), 2, "", "nimprops: option --log is only valid with check\n");
    expectResult(run("--log check"), 2, "", "nimprops: check requires the operands FILE...\n");
}

TEST_F(NimpropsTest, PrintsVersionAndUsage)
{
    expectResult(run("--version"), 0, "nimprops (dalnim) " TOOLS_VERSION "\n", "");
    const Result help = run("-h");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, testing::StartsWith("usage: nimprops check [--log] FILE...\n"));
    EXPECT_EQ(help.errors, "");
}

TEST_F(NimpropsTest, NamesTheFileThatCannotBeRead)
{
    expectResult(run("print missing"), 2, "", "nimprops: cannot read missing: No such file or directory\n");
    expectResult(run("get . key"), 2, "", "nimprops: cannot read .: Is a directory\n");
    write("good", "a=1\n");
    expectResult(run("diff good missing"), 2, "",
                 "nimprops: cannot read missing: No such file or directory\n");
    write("double", "a=1\na=2\n");
    expectResult(run("check missing double"), 2, "double:2: warning: Overriding property \"a\"\n",
                 "nimprops: cannot read missing: No such file or directory\n");
}

TEST_F(NimpropsTest, CheckLogPrintsSettingsThatAReconfigurationRejects)
{
    write("good", "com.kor.dal.nim.log.Control.file = a.log\n"
                  "com.kor.dal.nim.log.Control.maxFileSize = 10MiB\n");
    expectResult(run("check --log good"), 0, "", "");
    write("included", "com.kor.dal.nim.log.Control.localtime = yes\n");
    write("bad", "com.kor.dal.nim.log.Control.maxFileSize = 10\n"
                 "%pragma include \"included\"\n"
                 "com.kor.dal.nim.log.Control.file = /nowhere/at/all/a.log\n"
                 "host/plugins = a\n"
                 "com.kor.dal.nim.log.Control.severity = DEBUG\n"
                 "com.kor.dal.nim.log.Control.maxFileSize = 10 MB\n");
    expectResult(
        run("check --log good bad"), 1,
        "bad:6: warning: Overriding property \"com.kor.dal.nim.log.Control.maxFileSize\"\n"
        "bad:3: error: com.kor.dal.nim.log.Control.file = \"/nowhere/at/all/a.log\" must be a path that can "
        "be opened, but /nowhere/at/all/a.log: No such file or directory\n"
        "included:1: error: com.kor.dal.nim.log.Control.localtime = \"yes\" must be true or false\n"
        "bad:6: error: com.kor.dal.nim.log.Control.maxFileSize = \"10 MB\" must be a decimal number of "
        "bytes, or one directly followed by k, M, G, KiB, MiB or GiB\n"
        "bad:5: error: com.kor.dal.nim.log.Control.severity = \"DEBUG\" is not a setting; the settings are "
        "escape.enable, fallback.enable, priorityPrefix, file.mode, stream, file, directory, localtime, "
        "timeFormat, "
        "severity.mask, "
        "severity.id, output.mask, modules, modules.limits, remote.enable, maxNumberOfFiles and "
        "maxFileSize\n",
        "");
    expectResult(run("check bad"), 1,
                 "bad:6: warning: Overriding property \"com.kor.dal.nim.log.Control.maxFileSize\"\n", "");
    EXPECT_EQ(shell("ls").output, "bad\ngood\nincluded\n");
}

TEST_F(NimpropsTest, ReportsAFailedWrite)
{
    write("a", "a=1\n");
    expectResult(run("print a >/dev/full"), 2, "",
                 "nimprops: cannot write to standard output: No space left on device\n");
}

TEST_F(NimpropsTest, ValidFilesHaveNoFindings)
{
    write("a", "# fine\na = 1\nb : 2\n");
    write("b", "");
    expectResult(run("check a b"), 0, "", "");
    expectResult(run("check - < a"), 0, "", "");
}

TEST_F(NimpropsTest, PrintsEveryErrorAndWarning)
{
    shell("mkdir sub");
    write("a.properties", "a=1\n"
                          "a=2\n"
                          "k\\x4=\\u12\n"
                          "%pragma include \"sub/b.properties\"\n"
                          "bad=\\xg\n"
                          "%pragma include bare\n"
                          "a=5\n");
    write("sub/b.properties", "a=3\n"
                              "%pragma severity error\n"
                              "a=4\n");
    expectResult(run("check a.properties"), 1,
                 "a.properties:3: error: End-of-line encountered in unicode escape sequence.\n"
                 "a.properties:5: error: Invalid hex escape sequence '\\xg'.\n"
                 "a.properties:6: error: invalid arg for %pragma include: \"bare\"\n"
                 "a.properties:2: warning: Overriding property \"a\"\n"
                 "sub/b.properties:1: warning: Overriding property \"a\"\n"
                 "a.properties:7: warning: Overriding property \"a\"\n",
                 "");
}

TEST_F(NimpropsTest, StopsAtAnErrorOfAnIncludedFile)
{
    shell("mkdir sub");
    write("a", "%pragma include \"sub/b\"\nc=\\xg\n");
    write("sub/b", "x=1\n%pragma what else\ny=\\xg\n");
    expectResult(run("check a"), 1, "sub/b:2: error: unknown %pragma command: \"what\"\n", "");
    write("a", "%pragma include \"sub/c\"\n");
    expectResult(run("check a"), 1, "a:1: error: failed to open include file: \"sub/c\"\n", "");
}

TEST_F(NimpropsTest, IncludedFifoIsRejectedWithoutWaiting)
{
    shell("mkdir sub; mkfifo sub/pipe");
    write("a", "x=1\n%pragma include \"sub/b\"\n");
    write("sub/b", "\ny=2\n%pragma include \"pipe\"\n");
    const std::string message =
        "nimprops: sub/b:3: the included file sub/pipe is a FIFO, which is not supported\n";
    for (const char* const command :
         {"check a", "print a", "get a x", "instance a x", "diff a a", "check - < a"}) {
        expectResult(shell(std::string("exec timeout 20 '" NIMPROPS_PROGRAM "' ") + command), 2, "", message);
    }
    // A file named by the user may be a FIFO.
    expectResult(shell("exec timeout 20 '" NIMPROPS_PROGRAM "' print <(echo 'k=v')"), 0, "k=v\n", "");
}

TEST_F(NimpropsTest, IncludesInACycleThroughAnotherDirectoryAreReadOnce)
{
    shell("mkdir sub");
    write("a", "%pragma include \"sub/b\"\na=1\n");
    write("sub/b", "%pragma include \"../a\"\n%pragma include \"../sub/c\"\nb=2\n");
    write("sub/c", "%pragma include \"./c\"\na=3\nb=3\n");
    expectResult(run("print a"), 0, "a=1\nb=2\n", "");
    expectResult(run("check a"), 1,
                 "sub/b:3: warning: Overriding property \"b\"\n"
                 "a:2: warning: Overriding property \"a\"\n",
                 "");
    write("sub/c", "c=\\x\n");
    expectResult(run("check a"), 1,
                 "sub/../sub/c:1: error: End-of-line encountered in hex escape sequence.\n", "");
}

TEST_F(NimpropsTest, FileWithAnAmbiguousNameIsNamedWithoutItsPath)
{
    shell("mkdir sub");
    write("same", "k=0\n%pragma include \"sub/same\"\nl=\\xg\n");
    write("sub/same", "k=1\n");
    expectResult(run("check same"), 1,
                 "same:1: warning: Overriding property \"k\"\n"
                 "same:3: error: Invalid hex escape sequence '\\xg'.\n",
                 "");
}

TEST_F(NimpropsTest, PrintedPropertiesLoadAsTheSameProperties)
{
    write("a", "z=last\n"
               "\\#k=v\n\\!k=v\n\\%k=v\n"
               "c=x\\ \n"
               "d = \\u00e9\\tz\n"
               "e=a\\\\\\\n   b\n"
               "f==g\n"
               "=nameless\n"
               "%pragma include \"b\"\n");
    write("b", "a=included\nz=early\n");
    const std::string printed = "=nameless\n"
                                "\\!k=v\n\\#k=v\n\\%k=v\n"
                                "a=included\n"
                                "c=x\\ \n"
                                "d=\\u00E9\\tz\n"
                                "e=a\\\\b\n"
                                "f==g\n"
                                "z=early\n";
    expectResult(run("print a"), 0, printed, "");
    write("again", printed);
    expectResult(run("print again"), 0, printed, "");
    expectResult(run("diff a again"), 0, "", "");
}

TEST_F(NimpropsTest, FileWithAnErrorIsNotPrinted)
{
    write("a", "a=1\n\nb=\\x\n");
    expectResult(run("print a"), 2, "", "nimprops: a:3: End-of-line encountered in hex escape sequence.\n");
    expectResult(run("get a a"), 2, "", "nimprops: a:3: End-of-line encountered in hex escape sequence.\n");
}

TEST_F(NimpropsTest, GetPrintsTheValueUnescaped)
{
    write("a", "a=\\u00e9 x\\ty\nempty\n");
    expectResult(run("get a a"), 0, "\xe9 x\ty\n", "");
    expectResult(run("get a empty"), 0, "\n", "");
    expectResult(run("get a other"), 1, "", "nimprops: a: no property \"other\"\n");
}

TEST_F(NimpropsTest, InstancePrintsSettingsWithTheirOrigin)
{
    write("a", "/pool/size=1\n"
               "*/pool/size=2\n"
               "%pragma include \"b\"\n"
               "/pool/rate=4\n"
               "*/other=5\n"
               "y/pool/size=6\n"
               "unprefixed=7\n");
    write("b", "\nx/pool/size=3\nx/pool/size=33\\ \n");
    expectResult(run("instance a x"), 0,
                 "other=5\t*/other\ta:5\n"
                 "pool/rate=4\t/pool/rate\ta:4\n"
                 "pool/size=33\\ \tx/pool/size\tb:3\n",
                 "");
    expectResult(run("instance a pool x"), 0,
                 "pool/rate=4\t/pool/rate\ta:4\n"
                 "pool/size=33\\ \tx/pool/size\tb:3\n",
                 "");
    expectResult(run("instance a pool z"), 0,
                 "pool/rate=4\t/pool/rate\ta:4\n"
                 "pool/size=2\t*/pool/size\ta:2\n",
                 "");
    expectResult(run("instance a pond x"), 1, "", "nimprops: a: no settings for x of class pond\n");
    // The prefix of the empty name is "/", which has the lowest precedence.
    expectResult(run("instance a pool ''"), 0,
                 "pool/rate=4\t/pool/rate\ta:4\n"
                 "pool/size=1\t/pool/size\ta:1\n",
                 "");
}

TEST_F(NimpropsTest, UnknownLocationIsNotGuessed)
{
    write("a", "/a=1\n/b=1\n%pragma severity error\n/b=2\n/c=3\n%pragma severity warning\n/d=4\n");
    expectResult(run("instance a x"), 0, "a=1\t/a\ta:1\nb=2\t/b\t-\nc=3\t/c\t-\nd=4\t/d\ta:7\n", "");
}

TEST_F(NimpropsTest, KeyThatIsOnlyAPrefixIsRejected)
{
    write("a", "*/=1\n");
    expectResult(run("instance a x"), 2, "",
                 "nimprops: a: a key consists only of a prefix: empty key not allowed\n");
}

TEST_F(NimpropsTest, DiffPrintsDifferences)
{
    write("a", "both=1\nchanged=old\nleft=1\nblank=\n");
    write("b", "both = 1\nchanged=new\\n\nright=2\nblank\nzz=3\n");
    expectResult(run("diff a b"), 1, "-changed=old\n+changed=new\\n\n-left=1\n+right=2\n+zz=3\n", "");
    expectResult(run("diff a - < a"), 0, "", "");
}

}
