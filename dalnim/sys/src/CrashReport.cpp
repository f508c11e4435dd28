#include <dalnim/dalbase.hpp>

#include <dalnim/sys/CrashReport.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/sys/internal/src/AlternateStack.hpp>
#include <dalnim/sys/internal/src/EvidenceOutput.hpp>
#include <dalnim/sys/internal/src/SafeMemory.hpp>
#include <dalnim/sys/internal/src/ThreadInquiry.hpp>
#include <dalnim/sys/internal/src/ThreadRegister.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <dalnim/sys/src/CrashText.hpp>
#include <qv/pmx/thread.h>

#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdlib>
#include <cxxabi.h>
#include <ctime>
#include <exception>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <typeinfo>
#include <unistd.h>
#include <unwind.h>

namespace com::kor::dal::nim::sys {

using internal::AlternateStack;
using internal::EvidenceOutput;
using internal::SafeText;
using internal::ThreadInquiry;
using internal::ThreadRegister;

namespace {

constexpr int SIGNALS[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr std::size_t SIGNAL_COUNT = sizeof SIGNALS / sizeof *SIGNALS;

constexpr std::size_t TEXT_SIZE = 2UL * 1024 * 1024;
/** The record has room for escaped newlines. */
constexpr std::size_t RECORD_SIZE = 3UL * 1024 * 1024;

/** Time for which a thread waits while others write their reports, in milliseconds. */
constexpr unsigned int OTHERS_MS = 10000;

/** Set last, under InitLock. Releases what install() has done to threads that acquire it without the lock. */
std::atomic<bool> is_installed;
// Written before the handlers are installed: the system orders that before a call of a handler on any thread.
char* report_memory;
unsigned int thread_timeout_ms;
struct sigaction previous_actions[SIGNAL_COUNT];
std::terminate_handler previous_terminate;

/**
 * The thread that writes a report, or 0. It releases the memory to the next one, whose exchange acquires it.
 * Relaxed where a handler looks for the ID of its own thread, which only that thread stores, and in the child
 * of a fork, which has one thread.
 */
std::atomic<ThreadID_t> reporter;
/**
 * Number of threads that write a report or wait to do so. Their decrements release their reports to a thread
 * that acquires 0, and may then end the process. Relaxed in the child of a fork, which has one thread.
 */
std::atomic<unsigned int> pending_reports;
/** Where the reporter continues if a part of its report faults; valid while the flag is set. */
sigjmp_buf part_guard;
volatile std::sig_atomic_t is_guarded;
/** Whether the calling thread has reported a call of std::terminate, which ends in SIGABRT. */
__attribute__((tls_model("initial-exec"))) __thread bool has_terminated;

ThreadID_t callerId() noexcept
{
    return static_cast<ThreadID_t>(::syscall(SYS_gettid));
}

void sleepOneMs() noexcept
{
    const std::timespec pause = {0, 1000000};
    ::nanosleep(&pause, nullptr);
}

/** Runs a part of the report. A fault in it returns here from the handler, which runs on the same thread. */
bool runPart(void (*part)(void*), void* argument)
{
    if (sigsetjmp(part_guard, 1) != 0) {
        is_guarded = 0;
        return false;
    }
    is_guarded = 1;
    part(argument);
    is_guarded = 0;
    return true;
}

/** Waits until no other thread writes a report. Returns false if that takes too long. */
bool becomeReporter() noexcept
{
    for (unsigned int ms = 0; ms < OTHERS_MS; ++ms) {
        ThreadID_t none = 0;
        if (reporter.compare_exchange_strong(none, callerId(), std::memory_order_acquire)) {
            return true;
        }
        sleepOneMs();
    }
    return false;
}

/** Writes a report, after those of other threads, and waits until all of them are complete. */
void report(const CrashCause& cause, std::uint32_t line) noexcept
{
    pending_reports.fetch_add(1, std::memory_order_acq_rel);
    if (becomeReporter()) {
        char* const record = report_memory + TEXT_SIZE;
        SafeText text(report_memory, TEXT_SIZE);
        CrashText::append(text, cause, thread_timeout_ms, record + RECORD_SIZE, runPart);
        EvidenceOutput::writeRecord({"FATAL", "CrashReport", line}, text.view(), record, RECORD_SIZE);
        reporter.store(0, std::memory_order_release);
    }
    // The process may end when this thread continues.
    pending_reports.fetch_sub(1, std::memory_order_acq_rel);
    for (unsigned int ms = 0; pending_reports.load(std::memory_order_acquire) != 0 && ms < OTHERS_MS; ++ms) {
        sleepOneMs();
    }
}

std::size_t indexOf(int number) noexcept
{
    std::size_t index = 0;
    while (index + 1 < SIGNAL_COUNT && SIGNALS[index] != number) {
        ++index;
    }
    return index;
}

bool isFunction(const struct sigaction& action) noexcept
{
    return (action.sa_flags & SA_SIGINFO) != 0
           || (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN);
}

/** Calls the handler that was installed before, with the signals blocked that it asked for. */
void callHandler(const struct sigaction& action, int number, siginfo_t* info, void* context) noexcept
{
    sigset_t blocked = action.sa_mask;
    if ((action.sa_flags & SA_NODEFER) == 0) {
        ::sigaddset(&blocked, number);
    }
    sigset_t saved;
    ::pthread_sigmask(SIG_BLOCK, &blocked, &saved);
    if ((action.sa_flags & SA_SIGINFO) != 0) {
        action.sa_sigaction(number, info, context);
    } else {
        action.sa_handler(number);
    }
    ::pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

/**
 * Restores the default action, and sends the signal again with the same information. It is delivered when the
 * handler returns, so that a core dump contains the original registers.
 */
void repeatWithDefault(int number, siginfo_t* info) noexcept
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(number, &action, nullptr);
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, number);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    if (::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), callerId(), number, info) != 0) {
        // A system call filter forbids it. Without the information, the signal still ends the process.
        ::syscall(SYS_tgkill, ::getpid(), callerId(), number);
    }
}

void onSignal(int number, siginfo_t* info, void* context)
{
    const internal::ErrnoKeeper keeper;
    if (reporter.load(std::memory_order_relaxed) == callerId()) {
        if (is_guarded != 0) {
            siglongjmp(part_guard, 1);
        }
        repeatWithDefault(number, info);
        return;
    }
    const struct sigaction& previous = previous_actions[indexOf(number)];
    const bool isSent = info->si_code <= 0;
    if (isSent && !isFunction(previous) && previous.sa_handler == SIG_IGN) {
        return;
    }
    if (!has_terminated) {
        report({info, context, {}}, __LINE__);
    }
    if (isFunction(previous)) {
        callHandler(previous, number, info, context);
    } else {
        repeatWithDefault(number, info);
    }
}

/** Appends a text without control characters, cut off after some bytes. */
void appendClean(SafeText& text, const char* words) noexcept
{
    constexpr std::size_t MOST = 1024;
    char copy[MOST];
    text << std::string_view(copy, internal::SafeMemory::readText(copy, sizeof copy, words));
}

void appendType(SafeText& text, const std::type_info* type) noexcept
{
    int status = 0;
    // Not in a signal handler: std::terminate is called by the thread itself.
    char* const name = abi::__cxa_demangle(type->name(), nullptr, nullptr, &status);
    appendClean(text, name != nullptr ? name : type->name());
    std::free(name); // NOLINT(cppcoreguidelines-no-malloc): the demangler's contract
}

/** Describes the exception that is being handled. */
void appendException(SafeText& text) noexcept
{
    const std::type_info* const type = abi::__cxa_current_exception_type();
    if (type == nullptr) {
        text << "without an exception";
        return;
    }
    text << "exception of type ";
    appendType(text, type);
    try {
        throw;
    } catch (const std::exception& exception) {
        text << ": ";
        appendClean(text, exception.what());
        if (const auto* const trace = dynamic_cast<const StackTrace*>(&exception)) {
            std::size_t number = trace->trace().size();
            for (const String& label : trace->trace()) {
                text << "\n  [" << std::uint64_t(--number) << "] ";
                appendClean(text, label.c_str());
            }
        }
    } catch (...) {
        // It has no text.
    }
}

[[noreturn]] void onTerminate()
{
    constexpr std::size_t EXCEPTION_SIZE = 8192;
    if (!has_terminated) {
        has_terminated = true;
        char memory[EXCEPTION_SIZE];
        SafeText text(memory, sizeof memory);
        appendException(text);
        report({nullptr, nullptr, text.view()}, __LINE__);
    }
    if (previous_terminate != nullptr) {
        previous_terminate();
    }
    std::abort();
}

void resetInChild() noexcept
{
    reporter.store(0, std::memory_order_relaxed);
    pending_reports.store(0, std::memory_order_relaxed);
}

_Unwind_Reason_Code ignoreFrame(_Unwind_Context*, void*)
{
    return _URC_NO_REASON;
}

char* allocateMemory()
{
    // Pages are only allocated when they are written to.
    void* const memory = ::mmap(nullptr, TEXT_SIZE + RECORD_SIZE + CrashText::MEMORY_SIZE,
                                PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        throw system_error(errno);
    }
    return static_cast<char*>(memory);
}

void giveStacks()
{
    constexpr unsigned int TIMEOUT_MS = 500;
    internal::ThreadState::current();
    AlternateStack::giveToNewThreads();
    AlternateStack::giveCaller();
    const ThreadID_t self = qv_si_thread_self();
    ThreadRegister::forEach([self](ThreadID_t tid) {
        if (tid != self) {
            AlternateStack::give(tid, TIMEOUT_MS);
        }
    });
}

void installHandlers()
{
    struct sigaction action = {};
    action.sa_sigaction = onSignal;
    // Without deferral, so that a fault in the report is handled.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    ::sigemptyset(&action.sa_mask);
    // Read first: the call that installs a handler would store the previous action after that.
    for (std::size_t i = 0; i < SIGNAL_COUNT; ++i) {
        if (::sigaction(SIGNALS[i], nullptr, &previous_actions[i]) != 0) {
            throw system_error(errno);
        }
    }
    for (std::size_t i = 0; i < SIGNAL_COUNT; ++i) {
        if (::sigaction(SIGNALS[i], &action, nullptr) != 0) {
            const int error = errno;
            while (i-- > 0) {
                ::sigaction(SIGNALS[i], &previous_actions[i], nullptr);
            }
            throw system_error(error);
        }
    }
}

}

void CrashReport::install()
{
    install(Options());
}

void CrashReport::install(const Options& options)
{
    const StackTrack track("install()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (isInstalled()) {
        return;
    }
    ThreadInquiry::install(options.threadSignal);
    // Not under InitLock: this acquires the locks of the log, and waits for other threads.
    EvidenceOutput::followLog();
    giveStacks();
    const InitLock lock(true);
    if (isInstalled()) {
        return;
    }
    if (report_memory == nullptr) {
        report_memory = allocateMemory();
        ::pthread_atfork(nullptr, nullptr, resetInChild);
    }
    thread_timeout_ms = options.threadTimeoutMs;
    // The first use of the unwinder may load it.
    _Unwind_Backtrace(ignoreFrame, nullptr);
    if (options.signals) {
        installHandlers();
    }
    if (options.terminate) {
        // Read first, like the previous actions.
        previous_terminate = std::get_terminate();
        std::set_terminate(onTerminate);
    }
    is_installed.store(true, std::memory_order_release);
}

bool CrashReport::isInstalled() noexcept
{
    return is_installed.load(std::memory_order_acquire);
}

}
