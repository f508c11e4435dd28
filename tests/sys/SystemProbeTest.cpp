// System and UniqueID on other hosts than this one: each test runs the program of SystemProbe.cpp on a host
// that the test describes in its environment.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

typedef std::vector<std::pair<std::string, std::string>> Environment;

/** The parameters with which a program is started. */
struct Start
{
    std::vector<std::string> arguments;
    Environment environment;
    std::string directory;
    /** The executable; searched for in PATH if it has no slash. */
    std::string file = DALNIM_SYSTEM_PROBE;
    /** The program's argv[0]. */
    std::string name;
};

[[noreturn]] void execute(const Start& start, int output)
{
    dup2(output, STDOUT_FILENO);
    unsetenv("PWD");
    unsetenv("PATH");
    for (const auto& variable : start.environment) {
        setenv(variable.first.c_str(), variable.second.c_str(), 1);
    }
    if (!start.directory.empty() && chdir(start.directory.c_str()) != 0) {
        _exit(126);
    }
    std::vector<char*> argv;
    std::string name = start.name.empty() ? start.file : start.name;
    argv.push_back(name.data());
    std::vector<std::string> arguments = start.arguments;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    execvp(start.file.c_str(), argv.data());
    _exit(127);
}

/** Runs a program to its end. Returns its output, followed by its exit status if that is not 0. */
std::string run(const Start& start)
{
    int ends[2];
    if (pipe(ends) != 0) {
        return "no pipe";
    }
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        execute(start, ends[1]);
    }
    close(ends[1]);
    std::string output;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        output.append(buffer, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0 ? output : output + "status " + std::to_string(status);
}

std::string probe(std::vector<std::string> arguments, Environment environment = {})
{
    Start start;
    start.arguments = std::move(arguments);
    start.environment = std::move(environment);
    return run(start);
}

TEST(SystemProbe, HostNameIsInLowerCaseAndLookedUpOnce)
{
    EXPECT_EQ("[myhost]\n[myhost]\n[myhost]\n[myhost]\nasked 1 times\n",
              probe({"host"}, {{"PROBE_HOST_NAME", "MyHost"}}));
    EXPECT_EQ("[a-1.b_z]\n[a-1.b_z]\n[a-1.b_z]\n[a-1.b_z]\nasked 1 times\n",
              probe({"host"}, {{"PROBE_HOST_NAME", "A-1.B_z"}}));
}

TEST(SystemProbe, TooLongHostNameIsTruncated)
{
    const std::string cut(511, 'n');
    EXPECT_EQ("[" + cut + "]\n[" + cut + "]\n[" + cut + "]\n[" + cut + "]\nasked 1 times\n",
              probe({"host"}, {{"PROBE_HOST_NAME", std::string(600, 'N')}}));
}

TEST(SystemProbe, FailedHostNameThrowsAndTheNextCallTriesAgain)
{
    EXPECT_EQ("1 Operation not permitted\n"
              "com.kor.dal.nim.sys.System.hostname():\n"
              "1 Operation not permitted\n"
              "com.kor.dal.nim.sys.System.hostname():\n"
              "[myhost]\n"
              "[myhost]\n"
              "asked 3 times\n",
              probe({"host"}, {{"PROBE_HOST_NAME", "MyHost"}, {"PROBE_HOST_FAILURES", "2"}}));
}

TEST(SystemProbe, AddressesHaveTheResolversOrderWithoutThoseThatFail)
{
    const std::string names = "name of family 2, 1025 bytes, no service, flags 1\n"
                              "name of family 250, 1025 bytes, no service, flags 1\n"
                              "name of family 10, 1025 bytes, no service, flags 1\n"
                              "name of family 2, 1025 bytes, no service, flags 1\n";
    EXPECT_EQ("asked for myhost, no service, family 0, type 1, protocol 0, flags 0\n" + names
                  + "[192.0.2.1]\n[2001:db8::1]\n[192.0.2.1]\n"
                    "asked for myhost, no service, family 10, type 1, protocol 0, flags 0\n"
                  + names + "freed 2 times\n",
              probe({"addresses"}, {{"PROBE_HOST_NAME", "MyHost"}}));
}

TEST(SystemProbe, ClocksCountInTheirUnits)
{
    // Microseconds, milliseconds, milliseconds, intervals of 100 nanoseconds since 1582.
    const struct
    {
        const char* clock;
        const char* told;
    } table[] = {
        {"0 0", "0\n0\n0\n122192928000000000\n"},
        {"1 0", "1000000\n1000\n1000\n122192928010000000\n"},
        {"0 999", "0\n0\n0\n122192928000000009\n"},
        {"0 1999999", "1999\n1\n1\n122192928000019999\n"},
        {"1700000000 123456789", "1700000000123456\n1700000000123\n1700000000123\n139192928001234567\n"},
        {"2147483647 999999999", "2147483647999999\n2147483647999\n2147483647999\n143667764479999999\n"},
        // 32 bits of seconds end here.
        {"2147483648 0", "2147483648000000\n2147483648000\n2147483648000\n143667764480000000\n"},
        {"4102444800 123456789", "4102444800123456\n4102444800123\n4102444800123\n163217376001234567\n"},
        // Truncated towards zero, not down.
        {"-1 999999000", "-1\n0\n0\n122192927999999990\n"},
        {"-2 0", "-2000000\n-2000\n-2000\n122192927980000000\n"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(row.told, probe({"clock"}, {{"PROBE_CLOCK", row.clock}})) << row.clock;
    }
}

TEST(SystemProbe, SleepSplitsOffTheSeconds)
{
    EXPECT_EQ("asked for 1 s 500000000 ns\n", probe({"sleep", "1500"}));
    EXPECT_EQ("asked for 0 s 0 ns\n", probe({"sleep", "0"}));
    EXPECT_EQ("asked for 0 s 999000000 ns\n", probe({"sleep", "999"}));
    EXPECT_EQ("asked for 1 s 0 ns\n", probe({"sleep", "1000"}));
    EXPECT_EQ("asked for 4294967 s 295000000 ns\n", probe({"sleep", "4294967295"}));
}

TEST(SystemProbe, TimeZoneIsInitialisedAtLoad)
{
    EXPECT_EQ("XYZ -10800\n1 03:00\n1 00:00\n", probe({"zone"}, {{"TZ", "XYZ-3"}}));
    EXPECT_EQ("ABC 18000\n31 19:00\n1 00:00\n", probe({"zone"}, {{"TZ", "ABC5"}}));
}

// The library has drawn the first of the 64-bit numbers itself, for its content key.
TEST(SystemProbe, BasesAreComputedFromTheClockAndTheProcessId)
{
    // 1700000000123 is 3487918203 in its low 32 bits.
    EXPECT_EQ("254313500\n254313501\n8057834635960873211\n8057834635960873212\n254313502\n",
              probe({"numbers"}, {{"PROBE_CLOCK", "1700000000 123456789"}, {"PROBE_PID", "4321"}}));
}

TEST(SystemProbe, NumbersDifferWithTheClockAfter2038)
{
    EXPECT_EQ("2510877724\n2510877725\n7454065336098558203\n7454065336098558204\n2510877726\n",
              probe({"numbers"}, {{"PROBE_CLOCK", "4102444800 123456789"}, {"PROBE_PID", "4321"}}));
}

TEST(SystemProbe, BaseOfZeroIsReplacedByTheProcessIdInTheOtherSeries)
{
    // 1700807049216 is 396 times 2 to the 32nd: its low bits are all zero.
    EXPECT_EQ("1\n2\n7349187259662338\n7349187259662339\n3\n",
              probe({"numbers"}, {{"PROBE_CLOCK", "1700807049 216000000"}, {"PROBE_PID", "4321"}}));
}

TEST(SystemProbe, ManyThreadsMayBeTheFirst)
{
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ("[myhost prog]\n8 numbers, 7 apart\nasked 1 times\nread 1 links\n",
                  probe({"threads"}, {{"PROBE_HOST_NAME", "MyHost"},
                                      {"PROBE_EXE", "/no/such/prog"},
                                      {"PROBE_CLOCK", "1700000000 123456789"},
                                      {"PROBE_PID", "4321"}}));
    }
}

// The process path.

class ProcessPathProbe : public testing::Test
{
protected:
    ProcessPathProbe()
    {
        char name[] = "/tmp/dalnim-system-XXXXXX";
        scratch = std::filesystem::canonical(mkdtemp(name));
        chmod(scratch.c_str(), 0755);
    }
    ~ProcessPathProbe() override
    {
        std::filesystem::remove_all(scratch);
    }

    std::string in(const std::string& name) const
    {
        return scratch + "/" + name;
    }
    void make_dir(const std::string& name, mode_t mode = 0755) const
    {
        std::filesystem::create_directories(in(name));
        chmod(in(name).c_str(), mode);
    }
    void make_program(const std::string& name) const
    {
        make_dir(std::filesystem::path(name).parent_path());
        std::filesystem::copy_file(DALNIM_SYSTEM_PROBE, in(name));
    }

    /** Returns the output of a process in the scratch directory that reads `exe` from its link in /proc. */
    std::string path_with_link(const std::string& exe, Environment environment = {},
                               const std::string& directory = "") const
    {
        Start start;
        start.arguments = {"path"};
        start.environment = std::move(environment);
        start.environment.emplace_back("PROBE_EXE", exe);
        start.directory = directory.empty() ? scratch : directory;
        return run(start);
    }

    std::string scratch;
};

std::string path_output(const std::string& directory, const std::string& name, const std::string& path)
{
    return "[" + name + "]\n[" + directory + "]\n[" + path + "]\n[" + path + "]\nread 1 links\n";
}

std::string failure_output(const std::string& name)
{
    return "2 Cannot determine directory of process " + name
           + ". Do ONE of the following: (1) start process with absolute path. (2) run process from "
             "current dir (assuming no 'chdir' has occurred). (3) add process relative directory to PATH "
             "variable if it can be found relative to current directory. (4) add process absolute "
             "directory to PATH variable. \n"
             "com.kor.dal.nim.sys.ProcessPath.raise():\n"
             "[]\n[]\n[]\nread 1 links\n";
}

TEST_F(ProcessPathProbe, IsTheSameHoweverTheProgramIsStarted)
{
    make_program("bin/prog");
    make_dir("other");
    ASSERT_EQ(0, symlink("bin/prog", in("link").c_str()));
    const std::string told = path_output(in("bin"), "prog", in("bin/prog"));

    Start start;
    start.arguments = {"path"};
    start.directory = scratch;
    for (const std::string& file : {in("bin/prog"), std::string("./bin/prog"), std::string("bin/prog"),
                                    std::string("other/../bin/prog"), std::string("./link")}) {
        start.file = file;
        EXPECT_EQ(told, run(start)) << file;
    }
    start.file = "bin/prog";
    start.name = "something/else";
    EXPECT_EQ(told, run(start));

    start.file = "prog";
    start.name = "";
    start.environment = {{"PATH", "/no/such/directory:" + in("bin")}};
    EXPECT_EQ(told, run(start));
}

TEST_F(ProcessPathProbe, IsNormalised)
{
    make_program("bin/prog");
    EXPECT_EQ(path_output(in("bin"), "prog", in("bin/prog")), path_with_link(in("./bin//../bin/prog")));
}

TEST_F(ProcessPathProbe, PathOfARemovedProgramIsUnresolved)
{
    EXPECT_EQ(path_output("/no/such/../place", "prog", "/no/such/../place/prog"),
              path_with_link("/no/such/../place/prog"));
    EXPECT_EQ(path_output(in("bin"), "prog (deleted)", in("bin/prog (deleted)")),
              path_with_link(in("bin/prog (deleted)")));
}

TEST_F(ProcessPathProbe, DirectoryOfAProgramInTheRootIsTheRoot)
{
    EXPECT_EQ(path_output("/", "no-such-program", "/no-such-program"), path_with_link("/no-such-program"));
}

TEST_F(ProcessPathProbe, RelativeNameIsResolvedInTheCurrentDirectory)
{
    make_program("bin/prog");
    make_program("prog");
    EXPECT_EQ(path_output(in("bin"), "prog", in("bin/prog")), path_with_link("bin/prog"));
    EXPECT_EQ(path_output(in("bin"), "prog", in("bin/prog")), path_with_link("./bin/../bin/prog"));
    EXPECT_EQ(path_output(scratch, "prog", in("prog")), path_with_link("prog"));
    // The environment is used only after it.
    EXPECT_EQ(path_output(scratch, "prog", in("prog")),
              path_with_link("prog", {{"PWD", in("bin")}, {"PATH", in("bin")}}));
}

TEST_F(ProcessPathProbe, CandidateNeedNotContainTheProgram)
{
    // Only a candidate that cannot be examined is skipped.
    make_program("bin/prog");
    EXPECT_EQ(path_output("missing", "prog", "missing/prog"), path_with_link("missing/prog"));
    EXPECT_EQ(path_output(scratch, "prog", in("prog")),
              path_with_link("prog", {{"PWD", in("bin")}, {"PATH", in("bin")}}));
}

TEST_F(ProcessPathProbe, PwdIsSearchedIfTheCurrentDirectoryIsRemoved)
{
    make_program("bin/prog");
    Start start;
    // The shell removes the directory that the program is then started in.
    start.file = "/bin/sh";
    start.arguments = {"-c", "rmdir \"$PWD_TO_REMOVE\"; unset OLDPWD; PWD=\"$GIVEN\"; export PWD; exec "
                             "\"$PROBE\" path"};
    make_dir("removed");
    start.directory = in("removed");
    start.environment = {{"PWD_TO_REMOVE", in("removed")},
                         {"GIVEN", in("bin")},
                         {"PATH", "/bin:/usr/bin"},
                         {"PROBE", DALNIM_SYSTEM_PROBE},
                         {"PROBE_EXE", "prog"}};
    EXPECT_EQ(path_output(in("bin"), "prog", in("bin/prog")), run(start));
}

class LockedProcessPathProbe : public ProcessPathProbe
{
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs to drop rights";
        }
        make_dir("locked", 0700);
        make_dir("locked/bin");
        make_program("bin/prog");
        make_program("other/prog");
    }

    std::string path_of_nobody(const std::string& exe, Environment environment) const
    {
        environment.emplace_back("PROBE_USER", "65534");
        return path_with_link(exe, std::move(environment), in("locked"));
    }
};

TEST_F(LockedProcessPathProbe, PwdAndPathAreSearchedInThisOrder)
{
    const std::string in_bin = path_output(in("bin"), "prog", in("bin/prog"));
    EXPECT_EQ(in_bin, path_of_nobody("prog", {{"PWD", in("bin")}, {"PATH", in("other")}}));
    EXPECT_EQ(in_bin, path_of_nobody("prog", {{"PWD", in("locked")}, {"PATH", in("bin")}}));
    EXPECT_EQ(in_bin, path_of_nobody("prog", {{"PWD", ""}, {"PATH", in("bin")}}));
    EXPECT_EQ(in_bin, path_of_nobody("prog", {{"PATH", in("bin") + ":" + in("other")}}));
    EXPECT_EQ(in_bin, path_of_nobody("prog", {{"PATH", in("locked/bin") + ":" + in("bin") + "::"}}));
}

TEST_F(LockedProcessPathProbe, DirectoryInTheNameIsTriedFirst)
{
    // From the locked directory no relative path can be examined, and only the name is used.
    EXPECT_EQ(path_output(in("bin"), "prog", in("bin/prog")),
              path_of_nobody("sub/prog", {{"PATH", in("bin")}}));
}

TEST_F(LockedProcessPathProbe, SearchEndsAtTheFirstEmptyEntryOfPath)
{
    EXPECT_EQ(failure_output("prog"), path_of_nobody("prog", {{"PATH", ":" + in("bin")}}));
    EXPECT_EQ(failure_output("prog"), path_of_nobody("prog", {{"PATH", in("locked") + "::" + in("bin")}}));
}

TEST_F(LockedProcessPathProbe, FirstCallThrowsAndLaterOnesReturnEmptyStringsWithoutADirectory)
{
    EXPECT_EQ(failure_output("prog"), path_of_nobody("prog", {}));
    EXPECT_EQ(failure_output("prog"), path_of_nobody("sub/prog", {{"PWD", ""}, {"PATH", ""}}));
    EXPECT_EQ(failure_output("prog"),
              path_of_nobody("prog", {{"PWD", in("locked")}, {"PATH", in("locked")}}));
}

// Without /proc.

TEST_F(ProcessPathProbe, IsReadFromTheLinkersErrorMessageIfMainIsNotExported)
{
    make_program("bin/prog");
    Start start;
    start.arguments = {"path"};
    start.directory = scratch;
    start.file = "./bin/prog";
    for (const char* const link : {"!", ""}) {
        start.environment = {{"PROBE_EXE", link}};
        start.name = "";
        EXPECT_EQ(path_output(in("bin"), "prog", in("bin/prog")), run(start));
        // Up to the first ": ", at any position.
        start.name = "./bin/prog: really";
        EXPECT_EQ(path_output(in("bin"), "prog", in("bin/prog")), run(start));
    }
    // A colon without a space is part of the path.
    make_program("bin:too/prog");
    start.file = "./bin:too/prog";
    start.name = "";
    EXPECT_EQ(path_output(in("bin:too"), "prog", in("bin:too/prog")), run(start));
}

TEST_F(ProcessPathProbe, IsTheFileOfMainIfMainIsExported)
{
    std::filesystem::copy_file(DALNIM_SYSTEM_PROBE_WITH_MAIN, in("prog"));
    Start start;
    start.arguments = {"path"};
    start.directory = scratch;
    start.file = "./prog";
    start.environment = {{"PROBE_EXE", "!"}};
    EXPECT_EQ(path_output(scratch, "prog", in("prog")), run(start));
    // No error message is parsed: a name that contains ": " is not truncated.
    start.name = "./prog: really";
    EXPECT_EQ(path_output(".", "prog: really", "./prog: really"), run(start));
}

TEST_F(ProcessPathProbe, UndeterminedNameIsUnknown)
{
    EXPECT_EQ(failure_output("<unknown>"), path_with_link("!", {{"PROBE_NO_LOADER", "1"}}));
    EXPECT_EQ(failure_output("<unknown>"), path_with_link("", {{"PROBE_NO_LOADER", "1"}}));
}

}
