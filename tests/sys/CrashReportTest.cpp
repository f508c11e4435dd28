// Real crashes, of the program of CrashProbe.cpp.

#include <dalnim/sys/CrashReport.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>
#include <support/Sanitizers.hpp>
#include <support/StandardLibrary.hpp>

namespace {

using com::kor::dal::nim::sys::CrashReport;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/** A run of the probe to its end. */
struct Crash
{
    explicit Crash(const std::string& mode, const std::vector<std::string>& more = {})
    {
        const std::string path = folder.file("log");
        setenv("PROBE_SECOND_LOG", folder.file("second").c_str(), 1);
        std::vector<std::string> command = {CRASH_PROBE, path, mode};
        command.insert(command.end(), more.begin(), more.end());
        support::ChildProcess process(command, folder.path());
        status = process.wait();
        output = process.output();
        errors = process.errors();
        log = support::readFile(path);
    }

    /** Returns the report in the log, from the prefix of its record on. */
    std::string report() const
    {
        const std::size_t at = log.find(" : Crash: ");
        return at == std::string::npos ? "no report" : log.substr(log.rfind('\n', at) + 1);
    }

    support::ScratchFolder folder;
    int status = -1;
    std::string output;
    std::string errors;
    std::string log;
};

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++found;
    }
    return found;
}

class CrashReportTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (support::UNDER_THREAD_SANITIZER || support::UNDER_ADDRESS_SANITIZER) {
            GTEST_SKIP() << "the sanitizer handles these signals itself";
        }
    }
};

TEST(CrashReport, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("CrashReport", CrashReport::CLASS_NAME);
    EXPECT_FALSE(CrashReport::isInstalled());
}

TEST_F(CrashReportTest, RecordContainsSignalThreadAndTracks)
{
    const Crash run("segv");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    const std::string report = run.report();
    EXPECT_THAT(report, ContainsRegex("^[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-9 ][0-9] [0-9:]* UTC [0-9]* [^ ]* "
                                      "crash_probe [0-9]* [0-9]* com.kor.dal.nim FATAL CrashReport "
                                      "[0-9]* : Crash: SIGSEGV \\(11\\), no memory is mapped there, address "
                                      "0x10, code 1\n"
                                      "  process [0-9]*, thread [0-9]* \"crash_probe\", time "
                                      "20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9:]*\\.[0-9]*Z\n"
                                      "    \\[1\\] inner\\(\\):12:13\n"
                                      "    \\[0\\] test\\.Probe\\.outer\\(\\):11\n"
                                      "  backtrace:\n"
                                      "    #0 0x[0-9a-f]* [^ ]*crash_probe\\+0x[0-9a-f]*\n"
                                      "    #1 0x[0-9a-f]* [^ ]*crash_probe\\+0x[0-9a-f]*\n"));
    EXPECT_THAT(report, ContainsRegex("\n  modules:\n    0x[0-9a-f]*-0x[0-9a-f]* [^ ]*crash_probe"));
    EXPECT_THAT(report, ContainsRegex("\n    0x[0-9a-f]*-0x[0-9a-f]* [^ ]*" CRASH_MODULE "[^ ]* build-id "
                                      "[0-9a-f]{40}\n"));
    EXPECT_THAT(report,
                ContainsRegex("\n    0x[0-9a-f]*-0x[0-9a-f]* [^ ]*libc[.-][^ ]* build-id [0-9a-f]{40}\n"));
    EXPECT_THAT(report, EndsWith("\n  end of report\n"));
    EXPECT_THAT(run.errors, HasSubstr(report));
}

TEST_F(CrashReportTest, EachSignalIsReportedWithItsCause)
{
    const struct
    {
        const char* mode;
        int signal;
        const char* text;
    } table[] = {
        {"bus", SIGBUS, "Crash: SIGBUS (7), the file that is mapped there has no such part, address 0x"},
#if defined(__aarch64__)
        // An operand or an opcode: kernel and emulator differ. A division by zero does not raise a signal.
        {"ill", SIGILL, "Crash: SIGILL (4), illegal op"},
#else
        {"ill", SIGILL, "Crash: SIGILL (4), illegal operand, address 0x"},
        {"fpe", SIGFPE, "Crash: SIGFPE (8), integer division by zero, address 0x"},
#endif
        {"abort", SIGABRT, "Crash: SIGABRT (6), sent by the process itself\n"},
        {"raise", SIGSEGV, "Crash: SIGSEGV (11), sent by the process itself\n"},
    };
    for (const auto& row : table) {
        const Crash run(row.mode);
        EXPECT_EQ(128 + row.signal, run.status) << row.mode;
        EXPECT_THAT(run.report(), HasSubstr(row.text));
        EXPECT_EQ(1U, count(run.log, " : Crash: ")) << row.mode;
        EXPECT_EQ(1U, count(run.errors, " : Crash: ")) << row.mode;
        EXPECT_THAT(run.report(), EndsWith("\n  end of report\n"));
    }
}

TEST_F(CrashReportTest, SignalOfAnotherProcessNamesTheSender)
{
    const support::ScratchFolder folder;
    support::ChildProcess process({CRASH_PROBE, folder.file("log"), "wait"}, folder.path());
    while (process.output() != "ready\n") {
        usleep(1000);
    }
    process.signal(SIGABRT);
    EXPECT_EQ(128 + SIGABRT, process.wait());
    EXPECT_THAT(support::readFile(folder.file("log")),
                HasSubstr("Crash: SIGABRT (6), sent by process " + std::to_string(getpid()) + " of user "
                          + std::to_string(getuid()) + "\n"));
}

TEST_F(CrashReportTest, UncaughtExceptionIsReportedWithTypeTextAndTrace)
{
    const Crash run("terminate");
    EXPECT_EQ(128 + SIGABRT, run.status);
    EXPECT_THAT(run.report(), HasSubstr(" : Crash: std::terminate, exception of type "
                                        "com::kor::dal::nim::sys::system_error: line one?line two\n"
                                        "    [0] thrower():31\n"
                                        "  process "));
    EXPECT_THAT(run.report(), ContainsRegex("\n    \\[0\\] thrower\\(\\):31\n  backtrace:\n    #0 0x"));
    // The default handler of the C++ library, and SIGABRT without a report of its own.
    EXPECT_THAT(run.errors, HasSubstr(support::TERMINATE_MESSAGE));
    EXPECT_EQ(1U, count(run.errors, " : Crash: "));
}

TEST_F(CrashReportTest, TerminationWithoutAStandardExceptionIsReported)
{
    EXPECT_THAT(Crash("terminate_int").report(),
                HasSubstr(" : Crash: std::terminate, exception of type int\n  process "));
    EXPECT_THAT(Crash("terminate_plain").report(),
                HasSubstr(" : Crash: std::terminate, without an exception\n  process "));
}

TEST_F(CrashReportTest, PreviousTerminateHandlerIsCalled)
{
    const Crash run("terminate_previous");
    EXPECT_EQ(128 + SIGABRT, run.status);
    EXPECT_THAT(run.errors, EndsWith("  end of report\nprevious terminate handler\n"));
    EXPECT_EQ(1U, count(run.errors, " : Crash: "));
}

TEST_F(CrashReportTest, PreviousHandlerGetsTheSameSignal)
{
    const Crash run("previous");
    EXPECT_EQ(7, run.status);
    EXPECT_THAT(run.errors,
                EndsWith("  end of report\nprevious handler: signal 11, code 1, address 0x10, with "
                         "context\n"));
    EXPECT_THAT(run.report(), EndsWith("  end of report\n"));
}

TEST_F(CrashReportTest, CoreIsDumped)
{
    const std::string pattern = support::readFile("/proc/sys/kernel/core_pattern");
    rlimit limit = {};
    getrlimit(RLIMIT_CORE, &limit);
    if (pattern.empty() || pattern[0] == '|' || pattern[0] == '/' || limit.rlim_max == 0) {
        GTEST_SKIP() << "this system does not write core files to the current directory";
    }
    const support::ScratchFolder folder;
    const std::string log = folder.file("log");
    const pid_t child = fork();
    if (child == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_CORE, &limit);
        const int none = open("/dev/null", O_WRONLY);
        dup2(none, STDERR_FILENO);
        if (chdir(folder.path().c_str()) == 0) {
            execl(CRASH_PROBE, CRASH_PROBE, log.c_str(), "segv", nullptr);
        }
        _exit(127);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGSEGV, WTERMSIG(status));
    EXPECT_TRUE(WCOREDUMP(status));
    EXPECT_THAT(support::readFile(log), EndsWith("\n  end of report\n"));
}

TEST_F(CrashReportTest, ExhaustedStackIsReported)
{
    for (const char* const mode : {"stack", "stack_thread", "stack_old_thread"}) {
        const Crash run(mode);
        EXPECT_EQ(128 + SIGSEGV, run.status) << mode;
        EXPECT_THAT(
            run.report(),
            AllOf(ContainsRegex("\n    #99 0x[0-9a-f]* [^ ]*crash_probe\\+0x[0-9a-f]*\n    and more\n"),
                  EndsWith("\n  end of report\n")))
            << mode;
    }
}

TEST_F(CrashReportTest, ReportUsesLessThanHalfOfASmallAlternateStack)
{
    for (const char* const mode : {"segv", "stack", "task", "others", "damaged_tracks", "stack_old_thread"}) {
        const Crash run(mode, {"measured"});
        unsigned int used = 0;
        unsigned int size = 0;
        const std::size_t line = run.errors.find("alternate stack: ");
        ASSERT_NE(std::string::npos, line) << run.errors;
        ASSERT_EQ(2, std::sscanf(run.errors.c_str() + line, "alternate stack: %u of %u bytes", &used, &size));
        EXPECT_LT(2 * used, size) << mode;
        EXPECT_LE(size, 65536U) << mode;
    }
}

TEST_F(CrashReportTest, LastAddressSpaceIsNotUsedForAnAlternateStack)
{
    const Crash little("little_memory");
    EXPECT_EQ(128 + SIGSEGV, little.status);
    EXPECT_THAT(little.errors, StartsWith("the thread has no alternate stack\n"));
    // On the stack of the thread.
    EXPECT_THAT(little.report(),
                AllOf(HasSubstr("\n    [1] inner():12:13\n"), EndsWith("\n  end of report\n")));
    const Crash enough("enough_memory");
    EXPECT_THAT(enough.errors, StartsWith("the thread has an alternate stack\n"));
    EXPECT_THAT(enough.report(), EndsWith("\n  end of report\n"));
}

TEST_F(CrashReportTest, ThreadThatNeverUsedTheLibraryIsReported)
{
    const Crash run("unknown_thread");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_THAT(run.report(), AllOf(HasSubstr("address 0x10"),
                                    ContainsRegex("\n  other threads:\n    thread [0-9]* \"crash_probe\""),
                                    EndsWith("\n  end of report\n")));
}

TEST_F(CrashReportTest, TaskPoolAndTokenAreReported)
{
    const Crash run("task");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_THAT(run.report(),
                ContainsRegex("\n    task [0-9]* \"import\" \\(N12_GLOBAL__N_14WorkE\\) of pool [0-9]* "
                              "\"requests\"\n"
                              "    security token N12_GLOBAL__N_19UserTokenE\n"
                              "    \\[2\\] inner\\(\\):12:13\n"
                              "    \\[1\\] test\\.Probe\\.outer\\(\\):11\n"
                              "    \\[0\\] com\\.kor\\.dal\\.nim\\.mt\\.Task\\.run\\(\\):[0-9]*\n"
                              "  backtrace:\n"));
}

TEST_F(CrashReportTest, CrashInAPluginNamesTheModule)
{
    const Crash run("plugin", {DYN_CRASHING});
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_THAT(run.report(), HasSubstr("address 0x18"));
    EXPECT_THAT(run.report(), ContainsRegex("\n    #0 0x[0-9a-f]* [^ ]*dyn_crashing[^ ]*\\+0x[0-9a-f]*\n"
                                            "    #1 0x[0-9a-f]* [^ ]*crash_probe\\+"));
    EXPECT_THAT(run.report(), ContainsRegex("\n    0x[0-9a-f]*-0x[0-9a-f]* [^ ]*dyn_crashing"));
}

TEST_F(CrashReportTest, CrashWhileTheLogIsLockedIsReported)
{
    const Crash run("log_lock");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    // The log writes to a stream: the report is on standard error alone.
    EXPECT_THAT(run.errors,
                AllOf(ContainsRegex("Crash: SIGSEGV.*address 0x10"),
                      HasSubstr("com.kor.dal.nim.log.Write.log():"), EndsWith("end of report\n")));
    EXPECT_EQ("no report", run.report());
}

TEST_F(CrashReportTest, CrashInARecordIsReported)
{
    const Crash run("statement");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_THAT(run.report(), AllOf(HasSubstr("address 0x10"), EndsWith("\n  end of report\n")));
}

TEST_F(CrashReportTest, CrashInMallocIsReported)
{
    const Crash run("malloc");
    EXPECT_EQ(128 + SIGABRT, run.status) << run.errors;
    EXPECT_THAT(run.report(),
                AllOf(HasSubstr("Crash: SIGABRT"), ContainsRegex("#[0-9]* 0x[0-9a-f]* [^ ]*libc"),
                      EndsWith("\n  end of report\n")));
}

TEST_F(CrashReportTest, ConcurrentCrashesAreReportedOneAfterTheOther)
{
    for (int i = 0; i < 2; ++i) {
        const Crash run("two");
        EXPECT_EQ(128 + SIGSEGV, run.status);
        const std::string reports = run.report();
        EXPECT_EQ(2U, count(reports, " : Crash: "));
        EXPECT_EQ(2U, count(reports, "\n  end of report\n"));
        EXPECT_EQ(1U, count(reports, " \"one\", time "));
        EXPECT_EQ(1U, count(reports, " \"two\", time "));
        const std::size_t end = reports.find("\n  end of report\n");
        EXPECT_GT(reports.find(" : Crash: ", 200), end) << "one report is inside the other";
        // Each report contains the other thread.
        EXPECT_EQ(1U, count(reports, " \"one\", in one:1\n"));
        EXPECT_EQ(1U, count(reports, " \"two\", in two:1\n"));
    }
}

TEST_F(CrashReportTest, OtherThreadsAreReportedWithTheirInnermostTrack)
{
    const Crash run("others");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_THAT(run.report(), AllOf(HasSubstr("\n  other threads:\n"),
                                    ContainsRegex("\n    thread [0-9]* \"patient\", in waiting\\(\\):21\n"),
                                    ContainsRegex("\n    thread [0-9]* \"deaf\", state S, did not answer in "
                                                  "time: it blocks the signal\n")));
}

TEST_F(CrashReportTest, DamagedStackIsReported)
{
    const Crash run("damaged_stack");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_THAT(run.report(), AllOf(HasSubstr("\n  backtrace:\n    #0 0x"), HasSubstr("\n  modules:\n"),
                                    EndsWith("\n  end of report\n")));
}

TEST_F(CrashReportTest, DamagedTracksAreReported)
{
    const Crash run("damaged_tracks");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_THAT(run.report(), HasSubstr("\n    [1] (unreadable)\n    [0] whole():1\n  backtrace:\n"));
}

TEST_F(CrashReportTest, CallOfANullFunctionNamesTheCaller)
{
    const Crash run("call_null");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_THAT(run.report(),
                ContainsRegex("\n    #0 0x0 \\(no module\\)\n    #1 0x[0-9a-f]* [^ ]*crash_probe\\+0x"));
}

TEST_F(CrashReportTest, ReportIsWrittenToTheCurrentFileAfterARotation)
{
    const Crash run("rotated");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_NE("", support::readFile(run.folder.file("log.0"))) << "there was no rotation";
    EXPECT_THAT(run.report(), EndsWith("\n  end of report\n"));
}

TEST_F(CrashReportTest, ReportIsWrittenToTheFileThatReplacedTheFirst)
{
    const Crash run("replaced");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    EXPECT_EQ("no report", run.report());
    EXPECT_THAT(
        support::readFile(run.folder.file("second")),
        AllOf(HasSubstr("first record\n"), HasSubstr(" : Crash: SIGSEGV"), EndsWith("end of report\n")));
}

TEST_F(CrashReportTest, EscapingLogContainsTheReportInOneLine)
{
    const Crash run("escaped");
    EXPECT_EQ(128 + SIGSEGV, run.status);
    const std::string report = run.report();
    EXPECT_EQ(1U, count(report, "\n"));
    EXPECT_THAT(report, AllOf(HasSubstr("code 1\\n  process "), HasSubstr("\\n    [1] inner():12:13\\n"),
                              EndsWith("\\n  end of report\n")));
    EXPECT_THAT(run.errors, HasSubstr("code 1\n  process "));
}

TEST_F(CrashReportTest, PrefixHasTheFieldsOfTheOutputMask)
{
    const Crash run("masked");
    EXPECT_THAT(run.report(), StartsWith("com.kor.dal.nim FATAL : Crash: SIGSEGV (11), "));
}

TEST_F(CrashReportTest, PrefixIsInLocalTimeIfTheLogIs)
{
    setenv("TZ", "XYZ-5:30", 1);
    const Crash run("local");
    unsetenv("TZ");
    EXPECT_THAT(run.report(),
                ContainsRegex("^[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-9 ][0-9] [0-9:]* \\+0530 20"));
}

TEST_F(CrashReportTest, PrefixHasTheTimeInTheFormOfTheLog)
{
    const std::string date = "^20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]";
    EXPECT_THAT(Crash("UTC").report(), ContainsRegex(date + "Z [^ ]+ crash_probe "));
    EXPECT_THAT(Crash("UTC_US").report(), ContainsRegex(date + "\\.[0-9]{6}Z [^ ]+ crash_probe "));
    setenv("TZ", "XYZ-5:30", 1);
    const Crash run("OFFSET_MS");
    unsetenv("TZ");
    EXPECT_THAT(run.report(), ContainsRegex(date + "\\.[0-9]{3}\\+05:30 [^ ]+ crash_probe "));
}

TEST_F(CrashReportTest, ChildOfAForkReportsItsCrash)
{
    const Crash run("fork");
    EXPECT_EQ(0, run.status);
    EXPECT_THAT(run.errors, HasSubstr("the child was ended by signal 11\n"));
    EXPECT_THAT(run.report(), AllOf(HasSubstr("inner():12:13"), EndsWith("\n  end of report\n")));
}

}
