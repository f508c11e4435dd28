// Runs the gdb extension in gdb's batch mode, on the program gdb_subject and on core files of it. Addresses,
// thread IDs, IDs of tasks and context keys, which differ from run to run, are replaced by letters.

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>
#include <support/StandardLibrary.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::Not;

std::string replaceAll(const std::string& text, const char* pattern, const char* replacement)
{
    return std::regex_replace(text, std::regex(pattern), replacement);
}

class Gdb : public testing::Test
{
protected:
    void SetUp() override
    {
        if (std::string(GDB_PROGRAM).empty()) {
            GTEST_SKIP() << "gdb is not installed";
        }
        if (support::USES_LIBCXX) {
            GTEST_SKIP() << "the extension reads the strings and containers of libstdc++";
        }
        if (!std::string(GDB_SANITIZE).empty()) {
            GTEST_SKIP()
                << "the leak sanitizer does not run under a debugger, and instrumented frames differ";
        }
#ifndef GDB_HAS_TYPES
        GTEST_SKIP() << "the library was built without debug information";
#endif
    }

    struct Result
    {
        std::string output;
        std::string errors;
    };

    /**
     * Runs gdb with these commands, one a line. A command that fails does not end the run. No run may print a
     * Python traceback.
     */
    Result run(const std::string& commands, const std::vector<std::string>& arguments,
               const std::string& safePath = GDB_LIBRARY_DIRECTORY) const
    {
        std::vector<std::string> options = {"-ex", "set pagination off", "-ex", "set confirm off"};
        std::istringstream lines(commands);
        for (std::string line; std::getline(lines, line);) {
            options.insert(options.end(), {"-ex", line});
        }
        return runWith(options, arguments, safePath);
    }

    Result runWith(const std::vector<std::string>& options, const std::vector<std::string>& arguments,
                   const std::string& safePath) const
    {
        std::vector<std::string> command = {
            GDB_PROGRAM, "-nx", "-batch", "-iex", "set debuginfod enabled off",
            // A compiler cache may name sources in a directory of another build.
            "-iex", "set source open off", "-iex", "set auto-load safe-path " + safePath + ":/usr:/lib"};
        command.insert(command.end(), options.begin(), options.end());
        command.insert(command.end(), arguments.begin(), arguments.end());
        support::ChildProcess child(command, outputs.path());
        child.wait();
        const Result result = {normalized(child.output()), normalized(child.errors())};
        for (const char* const trace : {"Traceback", "Python Exception", "Error while executing Python"}) {
            EXPECT_THAT(result.output, Not(HasSubstr(trace)));
            EXPECT_THAT(result.errors, Not(HasSubstr(trace)));
        }
        return result;
    }

    /** Runs gdb with these commands where the subject has called stopHere(). */
    Result runStopped(const std::string& commands) const
    {
        return run("break subject::stopHere\nrun\n" + commands + "kill\n", subject());
    }

    std::vector<std::string> subject() const
    {
        return {"--args", GDB_SUBJECT, directory.file("log"), GDB_PLUGIN};
    }

    Result runOnCore(const std::string& commands, const std::string& core) const
    {
        return run(commands, {GDB_SUBJECT, core});
    }

    std::string normalized(std::string text) const
    {
        text = replaceAll(text, "0x[0-9a-f]+", "A");
        text = replaceAll(text, "Thread \\d+ \\(LWP \\d+\\)( \"gdb_subject\")?", "Thread N");
        text = replaceAll(text, "ID \\d+", "ID I");
        text = replaceAll(text, "context  \\d+", "context  K");
        text = replaceAll(text, "\\[\\d{6,}\\]", "[K]");
        text = replaceAll(text, "descriptor \\d+, \\d+ bytes", "descriptor D, B bytes");
        for (const std::string& part :
             {directory.path() + "/", std::filesystem::path(GDB_PLUGIN).parent_path().string() + "/",
              std::string(GDB_LIBRARY_DIRECTORY) + "/"}) {
            for (auto at = text.find(part); at != std::string::npos; at = text.find(part)) {
                text.erase(at, part.size());
            }
        }
        return text;
    }

    support::ScratchFolder directory;
    support::ScratchFolder outputs;
};

const char* const ALL_COMMANDS = "nim threads\nnim pools\nnim log\nnim plugins\n";

void expectThreads(const std::string& output)
{
    EXPECT_THAT(output, HasSubstr("Thread N\n"
                                  "  context  K: subject::Ticket at A, 5 references\n"
                                  "  tracks   #0 subject.Orders.deliver():7\n"
                                  "           #1 subject.main():1\n"));
    EXPECT_THAT(output, HasSubstr("Thread N\n"
                                  "  task     \"ship\", running, ID I, subject::Holding at A\n"
                                  "  pool     \"orders\", ID I, at A\n"
                                  "  context  K: subject::Ticket at A, 5 references\n"
                                  "  tracks   #0 subject.Holding.run():40\n"));
    EXPECT_THAT(output, HasSubstr("Thread N\n"
                                  "  task     \"courier\", running, ID I, mt::Thread at A\n"
                                  "  context  K: subject::Ticket at A, 5 references\n"
                                  "  tracks   #0 subject.Holding.run():40\n"));
    EXPECT_THAT(output, HasSubstr("Thread N\n"
                                  "  has not used the library\n"));
}

void expectPools(const std::string& output)
{
    EXPECT_THAT(output, HasSubstr("Pool \"orders\", ID I, at A\n"
                                  "  state    open, workers: 1, idle: 0\n"
                                  "  queue    pending: 2, limit: 10\n"
                                  "  backlog  queued or running: 3\n"
                                  "  worker   Thread N: \"ship\", running, ID I, subject::Holding at A\n"
                                  "  queued   \"pack\", queued, ID I, subject::Waiting at A\n"
                                  "  queued   \"bill\", queued, ID I, subject::Waiting at A\n"));
    EXPECT_THAT(output, HasSubstr("Pool \"idle\", ID I, at A\n"
                                  "  state    open, workers: 2, idle: 2\n"
                                  "  queue    pending: 0, limit: 3\n"
                                  "  backlog  queued or running: 0\n"
                                  "  worker   Thread N: idle\n"
                                  "  worker   Thread N: idle\n"));
}

void expectLog(const std::string& output)
{
    EXPECT_THAT(
        output,
        HasSubstr("Default logger log::Write at A\n"
                  "  path     \"log\"\n"
                  "  severity INFO and above\n"
                  "  fields   DATETIME TIMEZONE SEVERITY HOSTNAME PROCESSNAME PROCESSID THREADID MODULENAME "
                  "SOURCEFILE LINENUMBER\n"
                  "  output   file descriptor D, B bytes, limit 1000000 bytes, 0 rotated files, limit 5\n"
                  "  modules  4: global, com.kor.dal.nim.log.internal, com.kor.dal.nim, subject.orders\n"
                  "  filter   *\n"
                  "  lock     not held\n"
                  "  refused  0 statements in handlers\n"));
    EXPECT_THAT(output, HasSubstr("Logger log::Write at A\n"
                                  "  path     stream at A\n"
                                  "  severity mask ERROR\n"));
    EXPECT_THAT(output, HasSubstr("  modules  none\n"
                                  "  filter   subject.*\n"));
}

void expectPlugins(const std::string& output)
{
    EXPECT_THAT(output, HasSubstr("Plug-in \"libgdb_plugin.so\"\n"
                                  "  library  sys::DynLibrary at A, 3 references\n"
                                  "  module   libgdb_plugin.so, loaded at A\n"
                                  "  lookup   global\n"
                                  "  symbol   gdb_plugin_answer, 2 references\n"));
}

void expectAll(const std::string& output)
{
    expectThreads(output);
    expectPools(output);
    expectLog(output);
    expectPlugins(output);
}

TEST_F(Gdb, CommandsShowTheStateOfAProcess)
{
    const Result result = runStopped(ALL_COMMANDS);
    expectAll(result.output);
    EXPECT_EQ("", result.errors);
}

TEST_F(Gdb, CommandsShowTheStateInACoreOfGdb)
{
    runStopped("generate-core-file " + directory.file("core") + "\n");
    const Result result = runOnCore(ALL_COMMANDS, directory.file("core"));
    expectAll(result.output);
}

TEST_F(Gdb, CommandsShowTheStateInACoreOfTheKernel)
{
    const std::string pattern = support::readFile("/proc/sys/kernel/core_pattern");
    if (pattern.empty() || pattern.find_first_of("|/%") != std::string::npos) {
        GTEST_SKIP() << "the kernel writes core files elsewhere: " << pattern;
    }
    support::ChildProcess child({"/bin/sh", "-c",
                                 "cd " + directory.path()
                                     + " && ulimit -c unlimited && exec " GDB_SUBJECT " log " GDB_PLUGIN
                                       " --abort"},
                                outputs.path());
    EXPECT_EQ(128 + SIGABRT, child.wait());
    std::string core;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        if (entry.path().filename().string().rfind("core", 0) == 0) {
            core = entry.path();
        }
    }
    if (core.empty()) {
        GTEST_SKIP() << "the kernel has written no core file";
    }
    const Result result = runOnCore(ALL_COMMANDS, core);
    expectAll(result.output);
}

TEST_F(Gdb, PrintersShowEveryClass)
{
    const Result result =
        runStopped("print text\nprint ticket\nprint noTicket\nprint owning\nprint borrowing\n"
                   "print properties\nprint composite\nprint context\nprint *context.rco\n"
                   "print error\nprint orderError\nprint runtimeError\n");
    for (const char* const expected : {
             "$1 = (RX_String &) @A: \"two words\"\n",
             ": mem::RcoRef<subject::Ticket> to subject::Ticket at A, 5 references = {rco = A}\n",
             ": mem::RcoRef<subject::Ticket> to null\n",
             ": ObjectHolder of subject::Ticket at A, 1 reference, owned\n",
             ": ObjectHolder of subject::Ticket at A, 5 references, not owned\n",
             ": Properties with 2 properties = {[color] = red, [size] = 12\\tcm}\n",
             ": CompositeString \"a+b+c\", delimiters \"+\"\n",
             ": mem::RcoRef<type::ContainerContext> to sys::internal::CurrentContext at A, 2 references = "
             "{rco = A}\n",
             "$9 = type::ContainerContext with 1 entry = {[K] = subject::Ticket at A, 5 references}\n",
             ": sys::system_error with 2 tracks, error 2: \"no file\" = {[0] = subject.Orders.deliver():7, "
             "[1] = subject.main():1}\n",
             ": subject::OrderError with 2 tracks, error 22: \"no such order\" = {[0] = "
             "subject.Orders.deliver():7, "
             "[1] = subject.main():1}\n",
             ": RX_Exception with code 12 = {[0] = 12 /etc/file, [1] = 13 left right}\n",
         }) {
        EXPECT_THAT(result.output, HasSubstr(expected));
    }
    EXPECT_EQ("", result.errors);
}

TEST_F(Gdb, CorruptObjectsAreReportedWithTheReason)
{
    const Result result = runStopped(
        "set var text._rep = (RX_String::Rep*)16\nprint text\n"
        "set var ticket.rco = (subject::Ticket*)24\nprint ticket\n"
        "set var properties.data._M_t._M_impl._M_node_count = 99999999999\n"
        "print properties\n"
        "set var composite.target._M_string_length = 99999999999\nprint composite\n"
        "set var error.data._M_impl._M_finish = 0\nprint error\n"
        "set var *(long*)&runtimeError._next = 32\nprint runtimeError\n"
        "set var orders._name._M_string_length = 99999999999\n"
        "set var *(long*)&'com::kor::dal::nim::sys::internal::cached_state'->where = 3\n"
        "nim threads\nnim pools\n"
        "set var *(long*)&'com::kor::dal::nim::sys::(anonymous namespace)::instance' = 8\n"
        "nim plugins\n"
        "set var *(long*)&_ZZN3com3kor3dal3nim3log9ForkEntry4List2ofENS4_4KindEE7loggers = 8\n"
        "set var *((long*)&_ZZN3com3kor3dal3nim3log9ForkEntry4List2ofENS4_4KindEE7loggers + 5) = 8\n"
        "nim log\n");
    for (const char* const expected : {
             ": <Cannot access memory at address A>\n",
             ": mem::RcoRef<subject::Ticket> to <Cannot access memory at address A> at A, <",
             ": <corrupt map of size 99999999999> = {[<corrupt map of size 99999999999>] = <corrupt map of "
             "size 99999999999>}\n",
             ": <corrupt string of size 99999999999>\n",
             ": <corrupt vector of ",
             ": RX_Exception with code 12 = {[0] = 12 /etc/file, unreadable = <Cannot access memory at "
             "address A>}\n",
             "  pool     \"<corrupt string of size 99999999999>\", ID I, at A\n",
             "  tracks   <corrupt vector of ",
             "Pool \"<corrupt string of size 99999999999>\", ID I, at A\n",
         }) {
        EXPECT_THAT(result.output, HasSubstr(expected));
    }
    EXPECT_THAT(result.errors, HasSubstr("nim plugins: Cannot access memory at address A\n"));
}

TEST_F(Gdb, HeldLocksNameTheirThread)
{
    const Result result = runStopped("break com::kor::dal::nim::log::LogOutput::logLine\n"
                                     "call com_kor_dal_nim_log_control.setMaxFileSize(2000000)\n"
                                     "nim log\n");
    EXPECT_THAT(result.output,
                HasSubstr("  lock     of the logger held by Thread N, of the file held by Thread N\n"));
}

TEST_F(Gdb, ThreadsAreSelectedByTheirNumbers)
{
    const Result result = runStopped("nim threads 3 2\n");
    EXPECT_THAT(result.output, HasSubstr("Thread N\n"
                                         "  task     \"ship\", running, ID I, subject::Holding at A\n"));
    EXPECT_THAT(result.output, Not(HasSubstr("deliver()")));
}

TEST_F(Gdb, SelectedThreadAndFrameRemainSelected)
{
    const Result result =
        runStopped("up\nnim threads\nnim pools\nframe function main\ninfo frame\nprint $_thread\n"
                   "print argc\n");
    EXPECT_THAT(result.output, HasSubstr("$1 = 1\n$2 = 3\n"));
}

TEST_F(Gdb, WrongArgumentsAreRejected)
{
    const Result result = runStopped("nim threads 77\nnim threads -1\nnim pools all\n");
    EXPECT_EQ("nim threads: there is no thread 77\n"
              "nim threads: the arguments are numbers of threads, as in \"info threads\"\n"
              "nim pools: takes no argument\n",
              result.errors);
}

TEST_F(Gdb, MissingDebugInformationIsNamed)
{
    const std::string copy = directory.file("libdalnim.so.1");
    support::ChildProcess strip({GDB_OBJCOPY, "--strip-debug", GDB_LIBRARY, copy}, outputs.path());
    ASSERT_EQ(0, strip.wait()) << strip.errors();
    const Result result = run("set environment LD_LIBRARY_PATH " + directory.path()
                                  + "\nbreak subject::stopHere\nrun\nsource " GDB_SCRIPTS "/nim.py\n"
                                    "nim threads\n",
                              subject());
    EXPECT_THAT(result.errors, HasSubstr("nim threads: libdalnim.so.1 has no debug information: install "
                                         "libdalnim1-dbgsym, or the library without --strip\n"));
}

TEST_F(Gdb, PoolsAreShownWithoutThreadLocalVariables)
{
    const Result result = run("set libthread-db-search-path /nonexistent\nbreak subject::stopHere\nrun\n"
                              "nim threads 2\nnim pools\nkill\n",
                              subject());
    const std::string reason =
        "<gdb cannot find thread-local variables: it needs libthread_db, which its auto-load "
        "safe-path must contain>\n";
    EXPECT_THAT(result.output, HasSubstr("Thread N\n  " + reason));
    EXPECT_THAT(result.output, HasSubstr("Pool \"orders\", ID I, at A\n"
                                         "  state    open, workers: 1, idle: 0\n"
                                         "  queue    pending: 2, limit: 10\n"
                                         "  backlog  queued or running: 3\n"
                                         "  worker   Thread N: "
                                         + reason + "  queued   \"pack\""));
    EXPECT_THAT(result.output, HasSubstr("Pool \"idle\", ID I, at A\n"));
}

TEST_F(Gdb, MissingProcessIsNamed)
{
    const Result result = run("source " GDB_SCRIPTS "/nim.py\nnim log\n", {});
    EXPECT_THAT(result.errors, HasSubstr("nim log: there is no process and no core file\n"));
}

TEST_F(Gdb, MissingLibraryIsNamed)
{
    const Result result = run("starti\nsource " GDB_SCRIPTS "/nim.py\nnim pools\nkill\n", {"/bin/true"});
    EXPECT_THAT(result.errors, HasSubstr("nim pools: libdalnim.so is not loaded in this process\n"));
}

TEST_F(Gdb, LibraryOutsideOfTheSafePathLoadsNothing)
{
    const Result result = run("break subject::stopHere\nrun\nnim threads\nkill\n", subject(), "/nonexistent");
    EXPECT_THAT(result.output + result.errors, HasSubstr("auto-loading has been declined"));
    EXPECT_THAT(result.errors, HasSubstr("Undefined command: \"nim\""));
}

TEST_F(Gdb, ProbesHaveTheirArguments)
{
#ifndef GDB_HAS_PROBES
    GTEST_SKIP() << "the library was built without probes";
#endif
    const std::pair<const char*, const char*> probes[] = {
        {"task__queued",
         R"(%d: %d %d %s\n", $_probe_argc, $_probe_arg0 == (long)task, $_probe_arg1 == (long)this, )"
         R"((char*)$_probe_arg2)"},
        {"task__begun", R"(%d: %d %d\n", $_probe_argc, $_probe_arg0 == (long)this->_task, )"
                        R"($_probe_arg1 == (long)this->_pool)"},
        {"task__ended", R"(%d: %d %d\n", $_probe_argc, $_probe_arg0 == (long)this->_task, )"
                        R"($_probe_arg1 == (long)this->_pool)"},
        {"record", R"(%d: %s %d %d\n", $_probe_argc, (char*)$_probe_arg0, $_probe_arg1, $_probe_arg2 > 100)"},
        {"rotation", R"(%d: %s %d %d\n", $_probe_argc, (char*)$_probe_arg0, $_probe_arg1, $_probe_arg2)"},
        {"plugin__loaded", R"(%d: %s %d\n", $_probe_argc, (char*)$_probe_arg0, $_probe_arg1 != 0)"},
        {"plugin__unloaded",
         R"(%d: %s %d %d\n", $_probe_argc, (char*)$_probe_arg0, $_probe_arg1 != 0, $_probe_arg2)"},
#ifdef GDB_HAS_LOCK_PROBES
        {"lock__contended", R"(%d: %d\n", $_probe_argc, $_probe_arg0 != 0)"},
        {"lock__acquired", R"(%d: %d %d\n", $_probe_argc, $_probe_arg0 != 0, $_probe_arg1)"},
#endif
    };
    std::string commands = "set pagination off\nset confirm off\nset breakpoint pending on\n";
    for (const auto& [name, format] : probes) {
        commands += std::string("tbreak -probe-stap dalnim:") + name + "\ncommands\nsilent\nprintf \"" + name
                    + ' ' + format + "\ncontinue\nend\n";
    }
    support::writeFile(directory.file("commands"), commands + "run\n");
    const Result result = runWith({"-x", directory.file("commands")}, subject(), GDB_LIBRARY_DIRECTORY);
    for (const char* const line :
         {"task__queued 3: 1 1 orders\n", "task__begun 2: 1 1\n", "task__ended 2: 1 1\n",
          "record 3: com.kor.dal.nim.log.internal 3 1\n", "rotation 3: log 1 0\n",
          "plugin__loaded 2: libgdb_plugin.so 1\n", "plugin__unloaded 3: libgdb_plugin.so 1 0\n"}) {
        EXPECT_THAT(result.output, HasSubstr(line));
    }
#ifdef GDB_HAS_LOCK_PROBES
    EXPECT_THAT(result.output, HasSubstr("lock__contended 1: 1\n"));
    EXPECT_THAT(result.output, HasSubstr("lock__acquired 2: 1 0\n"));
#endif
    EXPECT_THAT(result.output, HasSubstr("exited normally"));
}

}
