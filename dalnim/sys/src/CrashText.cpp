#include <dalnim/dalbase.hpp>

#include <dalnim/sys/src/CrashText.hpp>

#include <dalnim/sys/internal/src/ModuleMap.hpp>
#include <dalnim/sys/internal/src/Registers.hpp>
#include <dalnim/sys/internal/src/ThreadInquiry.hpp>

#include <algorithm>
#include <ctime>
#include <new>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <unwind.h>

namespace com::kor::dal::nim::sys {

using internal::ModuleMap;
using internal::Registers;
using internal::SafeText;
using internal::ThreadAnswer;
using internal::ThreadInquiry;

const std::size_t CrashText::MEMORY_SIZE = ModuleMap::MEMORY_SIZE + sizeof(ThreadAnswer) + 64;

namespace {

/** Number of frames of a backtrace; those of a recursion without end are cut off. */
constexpr unsigned int MOST_FRAMES = 100;

struct Name
{
    int number;
    const char* name;
};

template <std::size_t N>
const char* nameOf(const Name (&names)[N], int number) noexcept
{
    for (const Name& entry : names) {
        if (entry.number == number) {
            return entry.name;
        }
    }
    return nullptr;
}

const char* signalName(int number) noexcept
{
    static constexpr Name NAMES[] = {
        {SIGSEGV, "SIGSEGV"}, {SIGBUS, "SIGBUS"},   {SIGILL, "SIGILL"},
        {SIGFPE, "SIGFPE"},   {SIGABRT, "SIGABRT"},
    };
    const char* const name = nameOf(NAMES, number);
    return name != nullptr ? name : "signal";
}

/** Returns what the kernel reports as the cause of a fault, or null. */
const char* causeOf(const siginfo_t& info) noexcept
{
    static constexpr Name SEGV[] = {
        {SEGV_MAPERR, "no memory is mapped there"},
        {SEGV_ACCERR, "the memory does not permit this access"},
    };
    static constexpr Name BUS[] = {
        {BUS_ADRALN, "misaligned address"},
        {BUS_ADRERR, "the file that is mapped there has no such part"},
        {BUS_OBJERR, "hardware error"},
    };
    static constexpr Name ILL[] = {
        {ILL_ILLOPC, "illegal opcode"},
        {ILL_ILLOPN, "illegal operand"},
        {ILL_PRVOPC, "privileged opcode"},
    };
    static constexpr Name FPE[] = {
        {FPE_INTDIV, "integer division by zero"},
        {FPE_INTOVF, "integer overflow"},
        {FPE_FLTDIV, "floating-point division by zero"},
        {FPE_FLTINV, "invalid floating-point operation"},
    };
    switch (info.si_signo) {
    case SIGSEGV:
        return nameOf(SEGV, info.si_code);
    case SIGBUS:
        return nameOf(BUS, info.si_code);
    case SIGILL:
        return nameOf(ILL, info.si_code);
    case SIGFPE:
        return nameOf(FPE, info.si_code);
    default:
        return nullptr;
    }
}

/** An iteration over the frames of the calling thread. */
struct Backtrace
{
    SafeText& text;
    const ModuleMap& modules;
    /** The instruction at which the frames begin; 0 for all frames. */
    std::uint64_t begin;
    bool hasBegun;
    unsigned int count;
};

void appendFrame(Backtrace& trace, std::uint64_t address) noexcept
{
    trace.text << "    #" << trace.count << ' ';
    trace.modules.appendAddress(trace.text, address);
    trace.text << '\n';
    ++trace.count;
}

_Unwind_Reason_Code visitFrame(_Unwind_Context* context, void* argument)
{
    auto& trace = *static_cast<Backtrace*>(argument);
    const auto address = static_cast<std::uint64_t>(_Unwind_GetIP(context));
    if (trace.hasBegun) {
        if (trace.count == MOST_FRAMES) {
            trace.text << "    and more\n";
            return _URC_END_OF_STACK;
        }
        if (address != 0) {
            appendFrame(trace, address);
        }
    } else if (address == trace.begin) {
        // The caller has appended the first frame.
        trace.hasBegun = true;
    }
    return _URC_NO_REASON;
}

/** Appends a time such as 2026-11-22T15:16:33.123456Z. */
void appendTime(SafeText& text) noexcept
{
    std::timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    // Days since the first of March of the year 0: the leap day is then the last day of a year.
    constexpr std::int64_t SECONDS_PER_DAY = 86400;
    constexpr std::int64_t DAYS_TO_1970 = 719468;
    constexpr std::int64_t DAYS_PER_ERA = 146097;
    const std::int64_t days = now.tv_sec / SECONDS_PER_DAY + DAYS_TO_1970;
    const auto second = static_cast<std::uint32_t>(now.tv_sec % SECONDS_PER_DAY);
    const std::int64_t era = days / DAYS_PER_ERA;
    const auto ofEra = static_cast<std::uint32_t>(days % DAYS_PER_ERA);
    const std::uint32_t year = (ofEra - ofEra / 1460 + ofEra / 36524 - ofEra / 146096) / 365;
    const std::uint32_t ofYear = ofEra - (365 * year + year / 4 - year / 100);
    const std::uint32_t month = (5 * ofYear + 2) / 153;
    const std::uint32_t day = ofYear - (153 * month + 2) / 5 + 1;
    text << std::uint64_t(year) + static_cast<std::uint64_t>(era) * 400 + (month >= 10 ? 1 : 0) << '-';
    text.pair(month < 10 ? month + 3 : month - 9) << '-';
    text.pair(day) << 'T';
    text.pair(second / 3600) << ':';
    text.pair(second / 60 % 60) << ':';
    text.pair(second % 60) << '.';
    const auto micros = static_cast<std::uint32_t>(now.tv_nsec / 1000);
    text.pair(micros / 10000);
    text.pair(micros / 100 % 100);
    text.pair(micros % 100) << 'Z';
}

}

/** The arguments of all parts. */
struct CrashText::Parts
{
    SafeText& text;
    const CrashCause& cause;
    const unsigned int threadTimeoutMs;
    char* const mapMemory;
    ThreadAnswer& own;

    static void appendCause(void* argument);
    static void appendThread(void* argument);
    static void appendBacktrace(void* argument);
    static void appendThreads(void* argument);
    static void appendModules(void* argument);
};

/** The first line, and the identification of process and thread. */
void CrashText::Parts::appendCause(void* argument)
{
    const Parts& parts = *static_cast<Parts*>(argument);
    SafeText& text = parts.text;
    if (const siginfo_t* const info = parts.cause.info) {
        text << "Crash: " << signalName(info->si_signo) << " (" << info->si_signo << ')';
        if (info->si_code > 0) {
            if (const char* const cause = causeOf(*info)) {
                text << ", " << cause;
            }
            text << ", address ";
            text.hex(reinterpret_cast<std::uintptr_t>(info->si_addr));
            text << ", code " << info->si_code;
        } else if (info->si_pid == ::getpid()) {
            text << ", sent by the process itself";
        } else {
            text << ", sent by process " << info->si_pid << " of user " << info->si_uid;
        }
        text << '\n';
    } else {
        text << "Crash: std::terminate, ";
        std::string_view rest = parts.cause.exception;
        for (const char* indent = ""; !rest.empty(); indent = "  ") {
            const std::size_t end = std::min(rest.find('\n'), rest.size());
            text << indent << rest.substr(0, end) << '\n';
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    constexpr std::size_t NAME_SIZE = 16;
    char name[NAME_SIZE] = {};
    ::prctl(PR_GET_NAME, name);
    text << "  process " << ::getpid() << ", thread " << static_cast<ThreadID_t>(::syscall(SYS_gettid))
         << " \"" << name << "\", time ";
    appendTime(text);
    text << '\n';
}

/** Task, pool, token and tracks. */
void CrashText::Parts::appendThread(void* argument)
{
    const Parts& parts = *static_cast<Parts*>(argument);
    ThreadAnswer& own = parts.own;
    own.describeCaller(parts.cause.context);
    ThreadInquiry::appendDetails(parts.text, own);
}

void CrashText::Parts::appendBacktrace(void* argument)
{
    Parts& parts = *static_cast<Parts*>(argument);
    parts.text << "  backtrace:\n";
    const ModuleMap modules(parts.mapMemory);
    const Registers registers(parts.cause.context);
    const std::uint64_t fault = registers.instruction();
    Backtrace trace = {parts.text, modules, fault, parts.cause.context == nullptr, 0};
    if (parts.cause.context != nullptr) {
        appendFrame(trace, fault);
        // After a call of an invalid address, the unwinder finds no caller.
        std::uint64_t caller = 0;
        if (!modules.isCode(fault) && registers.readReturnAddress(caller) && modules.isCode(caller)) {
            appendFrame(trace, caller);
        }
    }
    _Unwind_Backtrace(visitFrame, &trace);
}

void CrashText::Parts::appendThreads(void* argument)
{
    const Parts& parts = *static_cast<Parts*>(argument);
    const auto self = static_cast<ThreadID_t>(::syscall(SYS_gettid));
    const ThreadInquiry inquiry(parts.threadTimeoutMs, parts.cause.context);
    bool isFirst = true;
    inquiry.forEach([&](const ThreadAnswer& answer) {
        if (answer.tid.load(std::memory_order_relaxed) != self) {
            parts.text << (isFirst ? "  other threads:\n" : "");
            isFirst = false;
            parts.text << "  ";
            ThreadInquiry::appendLine(parts.text, answer);
        }
    });
    if (inquiry.omitted() != 0) {
        parts.text << "    and " << std::uint64_t(inquiry.omitted()) << " more\n";
    }
}

void CrashText::Parts::appendModules(void* argument)
{
    const Parts& parts = *static_cast<Parts*>(argument);
    parts.text << "  modules:\n";
    const ModuleMap modules(parts.mapMemory);
    modules.appendModules(parts.text);
}

void CrashText::append(SafeText& text, const CrashCause& cause, unsigned int threadTimeoutMs, char* memory,
                       bool (*runPart)(void (*part)(void*), void* argument)) noexcept
{
    // The memory is zero, or that of an earlier report.
    auto* const own = reinterpret_cast<ThreadAnswer*>(memory + ModuleMap::MEMORY_SIZE);
    Parts parts = {text, cause, threadTimeoutMs, memory, *own};
    for (void (*const part)(void*) : {Parts::appendCause, Parts::appendThread, Parts::appendBacktrace,
                                      Parts::appendThreads, Parts::appendModules}) {
        if (!runPart(part, &parts)) {
            text << "\n  (the memory that this part of the report needs is damaged)\n";
        }
    }
    text << "  end of report\n";
}

}
