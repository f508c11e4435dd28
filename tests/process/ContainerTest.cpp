// A program uses each part of the library, the tools are run, and the host serves a document, in containers
// that lack what a whole system has. Each container is made of namespaces, limits and filters of this system.

#include "Run.hpp"

#include <support/Sanitizers.hpp>
#include <support/Valgrind.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace processtest;
namespace fs = std::filesystem;

/** A user without any right. */
constexpr unsigned int UNPRIVILEGED_ID = 65534;
/** Exit status of a child in which a container cannot be made. */
constexpr int NO_CONTAINER = 77;

/** How a container differs from this system. */
struct Container
{
    /** A root of its own: no /proc, /dev, /etc and home; all but /data and /tmp is read-only. */
    bool hasOwnRoot = false;
    /** Whether the own root has a /proc. */
    bool hasProc = false;
    bool isUnprivileged = false;
    bool hasClosedStreams = false;
    mode_t umask = 022;
    /** System calls that are refused, and with which error. */
    std::vector<long> refused;
    int refusal = EPERM;
};

/** System calls that neither the library nor the C and C++ libraries below it depend on. */
const std::vector<long> DISPENSABLE = {
    SYS_madvise,
    SYS_membarrier,
    SYS_rseq,
    SYS_getrandom,
    SYS_sched_setaffinity,
    SYS_sched_getaffinity,
    SYS_renameat2,
    SYS_process_vm_readv,
    SYS_perf_event_open,
    SYS_ptrace,
    SYS_prlimit64,
    SYS_sysinfo,
    SYS_set_robust_list,
    SYS_getcpu,
    SYS_io_uring_setup,
    SYS_inotify_init1,
    SYS_memfd_create,
    SYS_bpf,
    SYS_statx,
    SYS_faccessat2,
    SYS_close_range,
    SYS_mlock,
    SYS_timer_create,
    SYS_userfaultfd,
    SYS_setpriority,
    SYS_sched_setscheduler,
    SYS_personality,
};

/** Has the kernel refuse system calls to this process and the programs that it starts. */
bool refuse(const std::vector<long>& calls, int error)
{
    std::vector<sock_filter> program = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const long call : calls) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(call), 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned int>(error)));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
           && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

bool mountReadOnly(const std::string& from, const std::string& to)
{
    return ::mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0
           && ::mount(nullptr, to.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

/** The files of a container, and the runs of programs in it. */
class ContainerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (support::UNDER_ADDRESS_SANITIZER || support::UNDER_THREAD_SANITIZER
            || support::isUnderValgrind()) {
            GTEST_SKIP() << "the sanitizer, or valgrind, itself needs what the containers lack";
        }
        fs::permissions(folder.path(), fs::perms::all);
        fs::create_directory(data);
        fs::permissions(data, fs::perms::all);
    }

    /** The path of a program or plug-in within a container. */
    static std::string inside(const Container& container, const std::string& path)
    {
        return container.hasOwnRoot && path.rfind("/tmp/no", 0) != 0
                   ? "/app/" + fs::path(path).filename().string()
                   : path;
    }
    std::string dataInside(const Container& container) const
    {
        return container.hasOwnRoot ? "/data" : data;
    }

    /** Returns the exit status of a command, or 128 + the signal that ended it; NO_CONTAINER. */
    int run(const Container& container, std::vector<std::string> command)
    {
        command.front() = inside(container, command.front());
        std::vector<char*> argv;
        for (std::string& word : command) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        char libraries[] = "LD_LIBRARY_PATH=/app";
        char path[] = "PATH=/nowhere";
        char* environment[] = {path, container.hasOwnRoot ? libraries : nullptr, nullptr};
        const pid_t child = ::fork();
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (!enter(container)) {
                ::_exit(NO_CONTAINER);
            }
            ::execve(argv[0], argv.data(), environment);
            ::_exit(126);
        }
        int status = 0;
        EXPECT_EQ(child, ::waitpid(child, &status, 0));
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    /** Runs the probe. Skips the test if the container cannot be made. */
    void probe(const Container& container, const std::string& expected,
               const std::string& plugin = PROCESS_FIRST)
    {
        const int status =
            run(container, {PROCESS_CONTAINER_PROBE, dataInside(container), inside(container, plugin)});
        if (status == NO_CONTAINER) {
            GTEST_SKIP() << "this process may not make the container";
        }
        EXPECT_EQ(0, status) << errors();
        EXPECT_EQ(expected, support::readFile(data + "/result")) << errors();
    }

    std::string output() const
    {
        return support::readFile(folder.file("output"));
    }
    std::string errors() const
    {
        return support::readFile(folder.file("errors"));
    }

    const support::ScratchFolder folder;
    const std::string data = folder.file("data");

private:
    static bool redirect(int descriptor, const char* path, int flags)
    {
        const int opened = ::open(path, flags, 0600);
        return opened != -1 && ::dup2(opened, descriptor) == descriptor && ::close(opened) == 0;
    }

    bool enter(const Container& container) const
    {
        const int flags = O_WRONLY | O_CREAT | O_TRUNC;
        if (!redirect(0, "/dev/null", O_RDONLY) || !redirect(1, folder.file("output").c_str(), flags)
            || !redirect(2, folder.file("errors").c_str(), flags)
            || (container.hasOwnRoot && !enterOwnRoot(container))) {
            return false;
        }
        ::umask(container.umask);
        if (container.isUnprivileged
            && (::setgroups(0, nullptr) != 0 || ::setgid(UNPRIVILEGED_ID) != 0
                || ::setuid(UNPRIVILEGED_ID) != 0)) {
            return false;
        }
        if (container.hasClosedStreams) {
            ::close(0);
            ::close(1);
            ::close(2);
        }
        return container.refused.empty() || refuse(container.refused, container.refusal);
    }

    bool enterOwnRoot(const Container& container) const
    {
        const std::string root = folder.file("root");
        ::mkdir(root.c_str(), 0755);
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0
            || ::mount("none", root.c_str(), "tmpfs", 0, "mode=755") != 0) {
            return false;
        }
        for (const char* const name : {"/app", "/data", "/tmp", "/usr", "/proc"}) {
            ::mkdir((root + name).c_str(), 0755);
        }
        bool isMade =
            mountReadOnly("/usr", root + "/usr")
            && ::mount(data.c_str(), (root + "/data").c_str(), nullptr, MS_BIND, nullptr) == 0
            && ::mount("none", (root + "/tmp").c_str(), "tmpfs", MS_NOEXEC | MS_NOSUID | MS_NODEV,
                       "mode=1777")
                   == 0
            && (!container.hasProc
                || ::mount("/proc", (root + "/proc").c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0);
        for (const char* const name : {"/lib", "/lib32", "/lib64", "/libx32"}) {
            std::error_code none;
            if (fs::is_symlink(name, none)) {
                isMade = isMade && ::symlink(fs::read_symlink(name).c_str(), (root + name).c_str()) == 0;
            } else if (fs::is_directory(name, none)) {
                ::mkdir((root + name).c_str(), 0755);
                isMade = isMade && mountReadOnly(name, root + name);
            }
        }
        for (const char* const file : CONTAINER_FILES) {
            const std::string to = root + "/app/" + fs::path(file).filename().string();
            std::ofstream(to).close();
            isMade = isMade && ::mount(file, to.c_str(), nullptr, MS_BIND, nullptr) == 0;
        }
        // A plug-in that the dynamic linker may not map.
        fs::copy_file(PROCESS_FIRST, root + "/tmp/noexec.so");
        return isMade && ::chdir(root.c_str()) == 0
               && ::mount(nullptr, root.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0
               && ::chroot(".") == 0 && ::chdir("/tmp") == 0;
    }

    static constexpr const char* CONTAINER_FILES[] = {PROCESS_CONTAINER_FILES};
};

/** What the probe writes on a whole system, with some lines replaced. */
std::string results(const std::vector<std::pair<std::string, std::string>>& replaced = {})
{
    std::vector<std::pair<std::string, std::string>> lines = {
        {"configuration", "the file has its header"},
        {"log", "200 records, rotated"},
        {"library", "statement content thread task logged"},
        {"pool", "300"},
        {"wait", "timed out"},
        {"plug-in", "spoken"},
        {"properties", "1 2"},
        {"Base64",
         "VGhlIHF1aWNrIGJyb3duIGZveCBqdW1wcyBvdmVyIHRoZSBsYXp5IGRvZy4= The quick brown fox jumps over the "
         "lazy dog."},
        {"XML", "requests one two \"text\" "},
        {"process", "process_container_probe"},
        {"fork", "status 0, logged"},
        {"threads", "kernel's name \"waiter\", in container.Waiter.hold():7"},
        {"crash", "signal 11, reported, track, module"},
        {"signal", "signal 11, reported, track, module"},
        {"data", "data\n"},
    };
    std::string text;
    for (auto& [part, result] : lines) {
        for (const auto& [otherPart, otherResult] : replaced) {
            result = part == otherPart ? otherResult : result;
        }
        text += part + ": " + result + '\n';
    }
    return text;
}

/** Without /proc there are no names of threads and modules. */
const std::vector<std::pair<std::string, std::string>> WITHOUT_PROC = {
    {"threads", "kernel's name \"\", in container.Waiter.hold():7"},
    {"crash", "signal 11, reported, track"},
    {"signal", "signal 11, reported, track"},
};

TEST_F(ContainerTest, WholeSystemLacksNothing)
{
    probe({}, results());
}

TEST_F(ContainerTest, RootWithoutProcDevAndHomeLacksOnlyNamesOfThreadsAndModules)
{
    Container container;
    container.hasOwnRoot = true;
    probe(container, results(WITHOUT_PROC));
}

TEST_F(ContainerTest, ReadOnlyRootWithProcLacksNothing)
{
    Container container;
    container.hasOwnRoot = true;
    container.hasProc = true;
    probe(container, results());
}

TEST_F(ContainerTest, UnprivilegedUserLacksNothing)
{
    Container container;
    container.hasOwnRoot = true;
    container.hasProc = true;
    container.isUnprivileged = true;
    probe(container, results());
}

TEST_F(ContainerTest, FilesHaveThePermissionsThatTheUmaskLeaves)
{
    Container container;
    container.umask = 077;
    probe(container, results());
    EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(data + "/server.log").permissions());
}

TEST_F(ContainerTest, ClosedStandardStreamsLackNothingIfTheLogHasAFile)
{
    Container container;
    container.hasClosedStreams = true;
    probe(container, results());
}

TEST_F(ContainerTest, PluginOnAFileSystemWithoutExecutionIsRefusedWithTheReason)
{
    Container container;
    container.hasOwnRoot = true;
    container.hasProc = true;
    probe(container,
          results({{"plug-in", "exception: Unable to load \"/tmp/noexec.so\": Exec format error, "
                               "/tmp/noexec.so: failed to map segment from shared object)"}}),
          "/tmp/noexec.so");
}

TEST_F(ContainerTest, DispensableSystemCallsMayBeForbidden)
{
    Container container;
    container.refused = DISPENSABLE;
    probe(container, results());
}

TEST_F(ContainerTest, DispensableSystemCallsMayBeMissing)
{
    Container container;
    container.refused = DISPENSABLE;
    // As old kernels do not know it. With EPERM, the C library itself starts no thread.
    container.refused.push_back(SYS_clone3);
    container.refusal = ENOSYS;
    probe(container, results());
}

TEST_F(ContainerTest, WithoutSignalsToThreadsOtherThreadsAreNotDescribed)
{
    Container container;
    container.refused = {SYS_rt_tgsigqueueinfo};
    probe(container, results({{"threads", "could not be asked"}}));
}

TEST_F(ContainerTest, WithoutAlternateStacksCrashesAreReported)
{
    Container container;
    container.refused = {SYS_sigaltstack};
    probe(container, results());
}

TEST_F(ContainerTest, WithoutNamesOfTheKernelThreadsHaveTheNameOfTheProcess)
{
    Container container;
    container.refused = {SYS_prctl};
    probe(container, results({{"threads", "kernel's name \"process_contain\", in "
                                          "container.Waiter.hold():7"}}));
}

TEST_F(ContainerTest, MinimalContainerLacksOnlyNamesOfThreadsAndModules)
{
    Container container;
    container.hasOwnRoot = true;
    container.isUnprivileged = true;
    container.hasClosedStreams = true;
    container.umask = 077;
    container.refused = DISPENSABLE;
    probe(container, results(WITHOUT_PROC));
}

#ifdef PROCESS_NIMHOST

/** The commands of a server's operator, and the server. */
class ContainerProgramsTest : public ContainerTest
{
protected:
    /** Runs a command in a container, and checks its status and standard output. */
    void expectOutput(const std::string& expected, const std::vector<std::string>& command)
    {
        Container container;
        container.hasOwnRoot = true;
        container.isUnprivileged = true;
        container.umask = 077;
        container.refused = DISPENSABLE;
        const int status = run(container, command);
        if (status == NO_CONTAINER) {
            GTEST_SKIP() << "this process may not make the container";
        }
        EXPECT_EQ(0, status) << errors();
        EXPECT_EQ(expected, output()) << errors();
    }

    void write(const std::string& name, const std::string& text) const
    {
        support::writeFile(data + '/' + name, text);
        fs::permissions(data + '/' + name, fs::perms::others_read, fs::perm_options::add);
    }
};

TEST_F(ContainerProgramsTest, ToolsRunInAMinimalContainer)
{
    write("server.log", "Sat Nov 14 15:05:20 UTC 2026 host01 server 1 1 disks WARNING disk 7 : full\n");
    expectOutput("         1 WARNING\n", {PROCESS_NIMLOG, "--count", "severity", "/data/server.log"});
    write("a.properties", "a = 1\n");
    expectOutput("1\n", {PROCESS_NIMPROPS, "get", "/data/a.properties", "a"});
    write("a.xml", "<a><b/></a>\n");
    expectOutput("", {PROCESS_NIMXML, "check", "/data/a.xml"});
}

TEST_F(ContainerProgramsTest, HostServesADocumentInAMinimalContainer)
{
    write("host.properties", "com.kor.dal.nim.log.Control.file = /data/host.log\n"
                             "host/plugins = encoder\nhost/plugin.directory = /app\n"
                             "pool/threads = 2\npool/pending = 16\n");
    write("a.xml",
          "<requests><request plugin='encoder' operation='base64'><text>Hello</text></request></requests>");
    expectOutput("<results>\n"
                 "  <result document=\"/data/a.xml\" number=\"1\" plugin=\"encoder\" "
                 "status=\"ok\">SGVsbG8=</result>\n"
                 "</results>\n",
                 {PROCESS_NIMHOST, "--config", "/data/host.properties", "/data/a.xml"});
    if (!IsSkipped()) {
        EXPECT_THAT(support::readFile(data + "/host.log"),
                    testing::HasSubstr("nimhost is down: sources stopped"));
    }
}

#endif

}
