// A program that installs crash reports, and crashes.
//
//     crash_probe LOG MODE [PLUGIN | measured]

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Common.hpp>
#include <dalnim/log/Control.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/CrashReport.hpp>
#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/DynSymbol.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/ThreadReport.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace io = com::kor::dal::nim::io;
namespace log = com::kor::dal::nim::log;
namespace mt = com::kor::dal::nim::mt;
namespace sys = com::kor::dal::nim::sys;
namespace type = com::kor::dal::nim::type;
using com::kor::dal::nim::String;

const char* plugin = nullptr;
volatile int zero = 0;

[[gnu::noinline]] void crash()
{
    *reinterpret_cast<volatile int*>(16) = 1;
}

[[gnu::noinline]] void crashInTracks()
{
    const sys::StackTrack outer("outer()", "Probe", "test", 11);
    sys::StackTrack inner("inner()", 12);
    inner.currentLine(13);
    crash();
}

class UserToken : public com::kor::dal::nim::mem::RefCntObject
{};

class Work : public mt::Runnable
{
public:
    explicit Work(std::function<void()> todo) : work(std::move(todo)) {}
    void run() override
    {
        work();
    }

private:
    std::function<void()> work;
};

/** Exhausts the stack. A recursion without an end would be an error of newer versions of clang. */
[[gnu::noinline]] int overflow(int depth)
{
    volatile char page[4096];
    page[0] = static_cast<char>(depth);
    return depth == std::numeric_limits<int>::max() ? 0 : overflow(depth + 1) + page[0];
}

void onTask()
{
    Work work(crashInTracks);
    mt::Task task(work, "import");
    mt::ThreadPool pool("requests", 1, 0, 0, 0, 0, 8);
    {
        const type::ContextScope scope(type::SecurityContext::opCreate, type::ContextScope::opRemove,
                                       type::SecurityContext::KEY, 0, type::ContainerContext::current());
        type::SecurityContext::current()->token(type::ConstSecurityTokenRef(new UserToken));
        pool.add(task);
    }
    pool.shutdown();
}

void inPlugin()
{
    const sys::DynSymbolRef symbol = sys::DynLibrary::load(plugin)->symbol("crash_in_plugin");
    reinterpret_cast<void (*)(void (*)())>(const_cast<void*>(symbol->data()))(nullptr);
}

/** Crashes while the logger holds its locks. */
struct CrashingBuffer : std::streambuf
{
    std::streamsize xsputn(const char*, std::streamsize) override
    {
        crash();
        return 0;
    }
    int overflow(int) override
    {
        crash();
        return 0;
    }
};

void underLogLock()
{
    static CrashingBuffer buffer;
    static std::ostream stream(&buffer);
    dynamic_cast<log::Write&>(log::GET_NIM_LOG_LOGGER_VAR()).setStream(static_cast<std::ios&>(stream));
    NIM_LOG(Severity_ERROR) << "never written";
}

/** Crashes in a record's text: the thread is inside a statement. */
struct CrashingText
{};
std::ostream& operator<<(std::ostream& os, const CrashingText&)
{
    crash();
    return os;
}

void inMalloc()
{
    // The word after the last block is the size of the rest of the heap, which malloc() then finds damaged,
    // while it holds its lock.
    char* volatile block = static_cast<char*>(std::malloc(100000));
    std::memset(block, 0xff, 100000 + 64);
    for (std::size_t size = 1000; size < 100000; size += 1000) {
        block = static_cast<char*>(std::malloc(size));
    }
}

/** A thread that blocks all signals: a report waits for its answer until the time-out. */
void startDeafThread()
{
    static std::atomic<bool> isDeaf{false};
    std::thread([] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        pthread_setname_np(pthread_self(), "deaf");
        sys::internal::ThreadState::current();
        isDeaf = true;
        for (;;) {
            ::pause();
        }
    }).detach();
    while (!isDeaf) {
        std::this_thread::yield();
    }
}

/** The second thread crashes during the report of the first. */
void twoThreads()
{
    startDeafThread();
    std::atomic<int> ready{0};
    const auto body = [&ready](const char* name) {
        pthread_setname_np(pthread_self(), name);
        const sys::StackTrack track(name, 1);
        ++ready;
        while (ready != 2) {
        }
        crash();
    };
    std::thread one(body, "one");
    std::thread two(body, "two");
    one.join();
    two.join();
}

void onOldThread(bool overflows)
{
    static std::atomic<bool> goOn{false};
    static std::atomic<bool> isReady{false};
    std::thread old([overflows] {
        sys::internal::ThreadState::current();
        isReady = true;
        while (!goOn) {
            std::this_thread::yield();
        }
        overflows ? static_cast<void>(overflow(0)) : crash();
    });
    while (!isReady) {
        std::this_thread::yield();
    }
    sys::CrashReport::install();
    goOn = true;
    old.join();
}

bool hasAlternateStack()
{
    stack_t stack = {};
    return sigaltstack(nullptr, &stack) == 0 && (stack.ss_flags & SS_DISABLE) == 0;
}

std::size_t addressSpaceInUse()
{
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/** Crashes on a thread that uses the library for the first time when so much address space is left. */
void withAddressSpace(std::size_t left)
{
    static std::atomic<bool> goOn{false};
    static std::atomic<bool> isReady{false};
    std::thread thread([] {
        isReady = true;
        while (!goOn) {
            std::this_thread::yield();
        }
        sys::internal::ThreadState::current();
        std::fprintf(stderr, "the thread has %s alternate stack\n", hasAlternateStack() ? "an" : "no");
        crashInTracks();
    });
    while (!isReady) {
        std::this_thread::yield();
    }
    rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = addressSpaceInUse() + left;
    setrlimit(RLIMIT_AS, &limit);
    goOn = true;
    thread.join();
}

void withWaitingThread()
{
    static std::atomic<bool> isReady{false};
    std::thread waiting([] {
        const sys::StackTrack track("waiting()", 21);
        pthread_setname_np(pthread_self(), "patient");
        isReady = true;
        for (;;) {
            ::pause();
        }
    });
    while (!isReady) {
        std::this_thread::yield();
    }
    startDeafThread();
    crashInTracks();
}

void withPreviousHandler()
{
    crashInTracks();
    std::fputs("the fault was repaired\n", stderr);
}

void installPreviousHandler()
{
    struct sigaction action = {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int number, siginfo_t* info, void* context) {
        std::fprintf(stderr, "previous handler: signal %d, code %d, address %p, %s context\n", number,
                     info->si_code, info->si_addr, context != nullptr ? "with" : "without");
        std::_Exit(7);
    };
    sigaction(SIGSEGV, &action, nullptr);
}

/** Has the previous handler print how much of the alternate stack was used, of which size. */
void installStackMeasurement()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {
        stack_t stack = {};
        sigaltstack(nullptr, &stack);
        // The memory was zero.
        const char* const bottom = static_cast<const char*>(stack.ss_sp);
        std::size_t unused = 0;
        while (unused < stack.ss_size && bottom[unused] == 0) {
            ++unused;
        }
        std::fprintf(stderr, "alternate stack: %zu of %zu bytes\n", stack.ss_size - unused, stack.ss_size);
        std::_Exit(7);
    };
    sigaction(SIGSEGV, &action, nullptr);
}

void installPreviousTerminate()
{
    std::set_terminate([] {
        std::fputs("previous terminate handler\n", stderr);
        std::abort();
    });
}

void useDamagedStack()
{
#if defined(__x86_64__)
    __asm__ volatile("mov $4096, %rsp\n\tmov $4096, %rbp\n\tpush %rax");
#elif defined(__aarch64__)
    __asm__ volatile("mov x29, #4096\n\tmov sp, x29\n\tstr x29, [sp, #-16]!");
#endif
}

void callNull()
{
    void (*volatile function)() = nullptr;
    function();
}

void useDamagedTracks()
{
    const sys::StackTrack track("whole()", 1);
    auto& where = sys::internal::ThreadState::current().where;
    where.reserve(10);
    where.push_back(reinterpret_cast<const sys::StackTrack*>(8));
    crash();
}

void throwError()
{
    const sys::StackTrack track("thrower()", 31);
    throw sys::system_error(22, "line one\nline two");
}

void forkAndCrash()
{
    const pid_t child = fork();
    if (child == 0) {
        crashInTracks();
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::fprintf(stderr, "the child was ended by signal %d\n", WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

const std::map<std::string, std::function<void()>> MODES = {
    {"segv", crashInTracks},
    {"bus",
     [] {
         FILE* const file = std::tmpfile();
         auto* const memory =
             static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fileno(file), 0));
         static_cast<void>(*memory);
     }},
#if defined(__aarch64__)
    {"ill", [] { __asm__ volatile("udf #0"); }},
#else
    {"ill", [] { __asm__ volatile("ud2"); }},
#endif
    {"fpe", [] { zero = 4711 / zero; }},
    {"abort", [] { std::abort(); }},
    {"raise", [] { std::raise(SIGSEGV); }},
    {"wait",
     [] {
         std::fputs("ready\n", stdout);
         std::fflush(stdout);
         for (;;) {
             ::pause();
         }
     }},
    {"terminate", throwError},
    {"terminate_int", [] { throw 42; }},
    {"terminate_plain", [] { std::terminate(); }},
    {"terminate_previous", throwError},
    {"stack", [] { overflow(0); }},
    {"stack_thread",
     [] {
         std::thread([] {
             sys::internal::ThreadState::current();
             overflow(0);
         }).join();
     }},
    {"stack_old_thread", [] { onOldThread(true); }},
    {"little_memory", [] { withAddressSpace(2000000); }},
    {"enough_memory", [] { withAddressSpace(8000000); }},
    {"unknown_thread", [] { std::thread([] { crash(); }).join(); }},
    {"task", onTask},
    {"plugin", inPlugin},
    {"log_lock", underLogLock},
    {"statement", [] { NIM_LOG(Severity_ERROR) << "text " << CrashingText(); }},
    {"malloc", inMalloc},
    {"two", twoThreads},
    {"others", withWaitingThread},
    {"previous", withPreviousHandler},
    {"damaged_stack", useDamagedStack},
    {"damaged_tracks", useDamagedTracks},
    {"call_null", callNull},
    {"rotated",
     [] {
         for (int i = 0; i < 50; ++i) {
             NIM_LOG(Severity_ERROR) << "a record that fills the file " << i;
         }
         crashInTracks();
     }},
    {"replaced",
     [] {
         com_kor_dal_nim_log_control.setStream("STDERR");
         com_kor_dal_nim_log_control.setPath(String(std::getenv("PROBE_SECOND_LOG")));
         NIM_LOG(Severity_ERROR) << "first record";
         crashInTracks();
     }},
    {"escaped", crashInTracks},
    {"masked", crashInTracks},
    {"local", crashInTracks},
    {"UTC", crashInTracks},
    {"UTC_US", crashInTracks},
    {"OFFSET_MS", crashInTracks},
    {"fork", forkAndCrash},
};

void configureLog(const std::string& path, const std::string& mode)
{
    const String prefix = "com.kor.dal.nim.log.Control.";
    io::Properties settings;
    settings.setProperty(prefix + log::Control::TAG_OUTPUT_DIRECTORY, path.substr(0, path.rfind('/')));
    settings.setProperty(prefix + log::Control::TAG_OUTPUT_FILE, path.substr(path.rfind('/') + 1));
    if (mode == "rotated") {
        settings.setProperty(prefix + log::Control::TAG_MAX_FILE_SIZE, "2000");
    }
    if (mode == "escaped") {
        settings.setProperty(prefix + log::Control::TAG_ESCAPE_CONTROLS, "true");
    }
    if (mode == "masked") {
        settings.setProperty(prefix + log::Control::TAG_OUTPUT_MASK, "SEVERITY MODULENAME");
    }
    if (mode == "local") {
        settings.setProperty(prefix + log::Control::TAG_RECORD_LOCAL_TIME, "true");
    }
    if (mode.rfind("UTC", 0) == 0 || mode.rfind("OFFSET", 0) == 0) {
        settings.setProperty(prefix + log::Control::TAG_TIME_FORMAT, mode);
    }
    sys::System::setConfiguration(settings);
    NIM_LOG(Severity_ERROR) << "before the crash";
}

}

int main(int argc, char** argv)
{
    if (argc < 3) {
        return 2;
    }
    // A report that blocks must fail.
    alarm(60);
    const std::string mode = argv[2];
    plugin = argc > 3 ? argv[3] : nullptr;
    if (mode == "previous") {
        installPreviousHandler();
    }
    if (plugin != nullptr && std::strcmp(plugin, "measured") == 0) {
        installStackMeasurement();
    }
    if (mode == "terminate_previous") {
        installPreviousTerminate();
    }
    if (mode == "two") {
        sys::CrashReport::Options options;
        options.threadTimeoutMs = 1000;
        sys::CrashReport::install(options);
    } else if (mode != "stack_old_thread") {
        sys::CrashReport::install();
        sys::CrashReport::install();
    }
    // After the installation, as reports must follow the log.
    configureLog(argv[1], mode);
    const auto found = MODES.find(mode);
    if (found == MODES.end()) {
        return 2;
    }
    found->second();
    return 0;
}
