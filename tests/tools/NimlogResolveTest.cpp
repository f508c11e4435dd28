// Reports of crashes in nimlog, from a program that really crashes.

#include "ToolFixture.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>
#include <support/Sanitizers.hpp>

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class NimlogResolveTest : public ToolFixture
{
protected:
    void SetUp() override
    {
        if (support::UNDER_THREAD_SANITIZER || support::UNDER_ADDRESS_SANITIZER) {
            GTEST_SKIP() << "the sanitizer handles the signals of crashes itself";
        }
        const support::ScratchFolder folder;
        support::ChildProcess process({CRASH_PROBE, folder.file("app.log"), "segv"}, folder.path());
        process.wait();
        log = support::readFile(folder.file("app.log"));
        write("app.log", log);
    }

    Result run(const std::string& arguments) const
    {
        return shell("exec '" NIMLOG_PROGRAM "' " + arguments);
    }
    static bool hasTool()
    {
        return std::system("command -v addr2line >/dev/null || command -v eu-addr2line >/dev/null") == 0;
    }

    std::string log;
};

TEST_F(NimlogResolveTest, ReportIsOneRecord)
{
    const Result result = run("--severity fatal app.log");
    EXPECT_EQ("", result.errors);
    EXPECT_EQ(0, result.status);
    const std::size_t begin = log.rfind('\n', log.find(" : Crash: ")) + 1;
    EXPECT_EQ(log.substr(begin), result.output);
    EXPECT_THAT(result.output, EndsWith("\n  end of report\n"));
    expectResult(run("--count severity app.log"), 0, "         1 FATAL\n         1 ERROR\n         2 INFO\n",
                 "");
}

TEST_F(NimlogResolveTest, FramesGetTheirFunctionsAndLines)
{
    if (!hasTool()) {
        GTEST_SKIP() << "addr2line is missing";
    }
    const Result result = run("--severity fatal --resolve app.log");
    EXPECT_EQ(0, result.status);
    // Frame 1 is the line of the call, although its address is that of the next instruction.
    const std::string source = support::readFile(CRASH_PROBE_SOURCE);
    const std::string call = "    inner.currentLine(13);\n    crash();\n";
    const auto callLine =
        1 + std::count(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(source.find(call)), '\n')
        + 1;
    EXPECT_THAT(result.output,
                ContainsRegex("\n    #0 0x[0-9a-f]* [^ ]*crash_probe\\+0x[0-9a-f]* in \\(anonymous "
                              "namespace\\)::crash\\(\\) at [^ ]*CrashProbe.cpp:[0-9]*\n"
                              "    #1 0x[0-9a-f]* [^ ]*crash_probe\\+0x[0-9a-f]* in \\(anonymous "
                              "namespace\\)::crashInTracks\\(\\) at [^ ]*CrashProbe.cpp:"
                              + std::to_string(callLine) + "\n"));
    EXPECT_THAT(result.output,
                ContainsRegex("crash_probe\\+0x[0-9a-f]* in main at [^ ]*CrashProbe.cpp:[0-9]*\n"));
    EXPECT_THAT(result.output, EndsWith("\n  end of report\n"));
}

TEST_F(NimlogResolveTest, NamesOfClassesAreDemangled)
{
    const std::string report = "global FATAL : Crash: SIGSEGV\n"
                               "    task 12 \"import\" (%s) of pool 3 \"requests\"\n"
                               "    security token %s\n"
                               "    thread 4 \"x\", task 13 \"y\" (%s)\n"
                               "    thread 5 \"x (3Foo\n";
    const auto with = [&report](const std::string& name) {
        std::string text = report;
        for (std::size_t at; (at = text.find("%s")) != std::string::npos;) {
            text.replace(at, 2, name);
        }
        return text;
    };
    write("app.log", with("N3foo3BarE"));
    expectResult(run("--mask MODULENAME,SEVERITY --resolve app.log"), 0, with("foo::Bar"), "");
    expectResult(run("--mask MODULENAME,SEVERITY app.log"), 0, with("N3foo3BarE"), "");
    write("app.log", "global NOTICE : Threads of process 1: 1\n  thread 1\n    task 12 \"import\" (3Foo)\n");
    expectResult(run("--mask MODULENAME,SEVERITY --resolve app.log"), 0,
                 "global NOTICE : Threads of process 1: 1\n  thread 1\n    task 12 \"import\" (Foo)\n", "");
}

TEST_F(NimlogResolveTest, JsonContainsTheResolvedReport)
{
    if (!hasTool()) {
        GTEST_SKIP() << "addr2line is missing";
    }
    const Result result = run("--severity fatal --resolve --json app.log");
    EXPECT_THAT(result.output, AllOf(HasSubstr("\"severity\":\"FATAL\",\"source\":\"CrashReport\""),
                                     HasSubstr(" in main at ")));
}

TEST_F(NimlogResolveTest, ModuleOfAnotherBuildIsNotUsed)
{
    const std::string label = "crash_probe build-id ";
    const std::size_t at = log.find(label) + label.size();
    ASSERT_GT(at, label.size());
    const std::string other(40, '0');
    write("app.log", log.substr(0, at) + other + log.substr(log.find('\n', at)));
    const Result result = run("--severity fatal --resolve app.log");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("nimlog: " CRASH_PROBE ": not the build that crashed, whose build ID is " + other + "\n",
              result.errors);
    EXPECT_THAT(result.output, Not(HasSubstr(" in main at ")));
    EXPECT_THAT(result.output, ContainsRegex("\n    #0 0x[0-9a-f]* [^ ]*crash_probe\\+0x[0-9a-f]*\n"));
}

TEST_F(NimlogResolveTest, MissingToolIsReported)
{
    const Result result = shell("PATH=/nowhere exec '" NIMLOG_PROGRAM "' --severity fatal --resolve app.log");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("nimlog: --resolve needs addr2line, of the package binutils, or eu-addr2line, of elfutils\n",
              result.errors);
    EXPECT_THAT(result.output, EndsWith("\n  end of report\n"));
}

TEST_F(NimlogResolveTest, OtherRecordsAreUnchanged)
{
    write("app.log", "global ERROR : Crash report\n    #0 0x10 /bin/sh+0x10\nglobal ERROR : Crash: \n"
                     "    #0 0x10 /no/such/file+0x10\n    #1 0x10 x+0x10\n    #2 0x10 /x\n");
    const Result result = run("--mask MODULENAME,SEVERITY --resolve app.log");
    EXPECT_EQ("global ERROR : Crash report\n    #0 0x10 /bin/sh+0x10\nglobal ERROR : Crash: \n"
              "    #0 0x10 /no/such/file+0x10\n    #1 0x10 x+0x10\n    #2 0x10 /x\n",
              result.output);
}

}
