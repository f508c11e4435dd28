#include <dalnim/dalbase.hpp>

#include <dalnim/sys/ThreadReport.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/src/EvidenceOutput.hpp>
#include <dalnim/sys/internal/src/SafeMemory.hpp>
#include <dalnim/sys/internal/src/ThreadInquiry.hpp>
#include <dalnim/sys/internal/src/ThreadRegister.hpp>
#include <dalnim/sys/nsdefs.hpp>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ostream>
#include <sys/mman.h>
#include <unistd.h>

namespace com::kor::dal::nim::sys {

using internal::EvidenceOutput;
using internal::SafeText;
using internal::ThreadAnswer;
using internal::ThreadInquiry;
using internal::ThreadRegister;

namespace {

/** Memory for the report of a signal handler: half of it for the text, half for the record. */
constexpr std::size_t REPORT_SIZE = 4UL * 1024 * 1024;

/** Stored once, before the handler, which acquires it, is installed. Relaxed under InitLock. */
std::atomic<char*> report_memory;
/** Whether a handler uses the memory, which it then releases to the handler whose exchange acquires it. */
std::atomic<bool> is_reporting;
// Relaxed: each is a value of its own, and stored before the handler is installed.
std::atomic<int> report_descriptor{-1};
std::atomic<unsigned int> report_timeout_ms{ThreadReport::DEFAULT_TIMEOUT_MS};

void writeReport(int, siginfo_t*, void* context)
{
    const internal::ErrnoKeeper keeper;
    if (is_reporting.exchange(true, std::memory_order_acquire)) {
        return;
    }
    char* const memory = report_memory.load(std::memory_order_acquire);
    SafeText text(memory, REPORT_SIZE / 2);
    const unsigned int timeoutMs = report_timeout_ms.load(std::memory_order_relaxed);
    {
        const ThreadInquiry inquiry(timeoutMs, context);
        inquiry.append(text, timeoutMs);
    }
    const int descriptor = report_descriptor.load(std::memory_order_relaxed);
    if (descriptor != -1) {
        EvidenceOutput::write(descriptor, text.view());
    } else {
        EvidenceOutput::writeRecord({"NOTICE", "ThreadReport", __LINE__}, text.view(),
                                    memory + REPORT_SIZE / 2, REPORT_SIZE / 2);
    }
    is_reporting.store(false, std::memory_order_release);
}

/** A child has only the thread that called fork(): no other one ends a report that it was writing. */
void endReportInChild() noexcept
{
    is_reporting.store(false, std::memory_order_relaxed);
}

ThreadReport::Entry entryOf(const ThreadAnswer& answer)
{
    ThreadReport::Entry entry = {};
    entry.tid = answer.tid.load(std::memory_order_relaxed);
    entry.name = answer.name;
    entry.state = answer.state;
    entry.cpuMs = static_cast<TimeMS_t>(answer.cpuMs);
    entry.hasAnswered = answer.outcome == ThreadAnswer::Outcome::ANSWERED;
    if (!entry.hasAnswered) {
        entry.silence = ThreadInquiry::outcomeText(answer.outcome);
        return entry;
    }
    entry.tracks.reserve(answer.labelCount);
    std::size_t offset = 0;
    for (std::uint32_t i = 0; i < answer.labelCount; ++i) {
        entry.tracks.emplace_back(answer.label(offset));
    }
    entry.omittedTracks = answer.trackCount - answer.labelCount;
    entry.hasTask = answer.hasTask;
    entry.taskId = answer.taskId;
    entry.taskName = answer.taskName;
    entry.taskType = demangle(answer.taskType);
    entry.hasPool = answer.hasPool;
    entry.poolId = answer.poolId;
    entry.poolName = answer.poolName;
    entry.tokenType = demangle(answer.tokenType);
    entry.lockAddress = answer.lockAddress;
    entry.lockOwner = answer.lockOwner;
    entry.sameForMs = static_cast<TimeMS_t>(answer.sameForMs);
    return entry;
}

void appendEntry(String& text, const ThreadReport::Entry& entry)
{
    text += "  thread " + std::to_string(entry.tid);
    if (!entry.name.empty()) {
        text += " \"" + entry.name + '"';
    }
    text += String(", state ") + entry.state + ", " + std::to_string(entry.cpuMs) + " ms of CPU time";
    if (!entry.hasAnswered) {
        text += ", " + entry.silence + '\n';
        return;
    }
    if (entry.sameForMs != 0 && (entry.hasTask || !entry.tracks.empty())) {
        text += ", here for at least " + std::to_string(entry.sameForMs) + " ms";
    }
    text += '\n';
    if (entry.hasTask) {
        text += "    task " + std::to_string(entry.taskId) + " \"" + entry.taskName + "\" (" + entry.taskType
                + ')';
    }
    if (entry.hasPool) {
        text += String(entry.hasTask ? " of " : "    ") + "pool " + std::to_string(entry.poolId) + " \""
                + entry.poolName + '"';
    }
    text += entry.hasTask || entry.hasPool ? "\n" : "";
    if (!entry.tokenType.empty()) {
        text += "    security token " + entry.tokenType + '\n';
    }
    if (entry.lockAddress != 0) {
        constexpr std::size_t NUMBER_SIZE = 32;
        char number[NUMBER_SIZE];
        SafeText address(number, sizeof number);
        address.hex(entry.lockAddress);
        text += "    waits for the lock at " + String(address.view()) + ", held by thread "
                + std::to_string(entry.lockOwner) + '\n';
    }
    std::size_t number = entry.tracks.size() + entry.omittedTracks;
    for (const String& label : entry.tracks) {
        text += "    [" + std::to_string(--number) + "] " + label + '\n';
    }
    if (entry.omittedTracks != 0) {
        text += "    and " + std::to_string(entry.omittedTracks) + " more\n";
    }
}

}

void ThreadReport::install(int realTimeSignal)
{
    const StackTrack track("install()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    ThreadInquiry::install(realTimeSignal);
}

int ThreadReport::realTimeSignal() noexcept
{
    return ThreadInquiry::signal();
}

void ThreadReport::installSignal(int signal, int descriptor, unsigned int timeoutMs)
{
    const StackTrack track("installSignal()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    ThreadInquiry::install(0);
    if (descriptor == -1) {
        EvidenceOutput::followLog();
    }
    const InitLock lock(true);
    if (report_memory.load(std::memory_order_relaxed) == nullptr) {
        // Pages are only allocated when they are written to.
        void* const memory = ::mmap(nullptr, REPORT_SIZE, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) {
            throw system_error(errno);
        }
        ::pthread_atfork(nullptr, nullptr, endReportInChild);
        report_memory.store(static_cast<char*>(memory), std::memory_order_release);
    }
    report_descriptor.store(descriptor, std::memory_order_relaxed);
    report_timeout_ms.store(timeoutMs, std::memory_order_relaxed);
    struct sigaction action = {};
    action.sa_sigaction = writeReport;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    if (::sigaction(signal, &action, nullptr) != 0) {
        throw system_error(errno);
    }
}

ThreadReport::ThreadReport(unsigned int timeoutMs) : omittedCount(0)
{
    const StackTrack track("ThreadReport()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const ThreadInquiry inquiry(timeoutMs, nullptr);
    entries.reserve(inquiry.size());
    inquiry.forEach([this](const ThreadAnswer& answer) { entries.push_back(entryOf(answer)); });
    omittedCount = static_cast<unsigned int>(inquiry.omitted()) + ThreadRegister::missing();
}

unsigned int ThreadReport::silent() const noexcept
{
    return static_cast<unsigned int>(
        std::count_if(entries.begin(), entries.end(), [](const Entry& entry) { return !entry.hasAnswered; }));
}

String ThreadReport::toString() const
{
    String text = "Threads of process " + std::to_string(::getpid()) + ": " + std::to_string(entries.size());
    if (silent() != 0) {
        text += ", of which " + std::to_string(silent()) + " did not answer in time";
    }
    if (omittedCount != 0) {
        text += "; " + std::to_string(omittedCount) + " more could not be asked";
    }
    text += '\n';
    for (const Entry& entry : entries) {
        appendEntry(text, entry);
    }
    return text;
}

std::ostream& operator<<(std::ostream& os, const ThreadReport& report)
{
    return os << report.toString();
}

}
