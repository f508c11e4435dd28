#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/ThreadInquiry.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/src/AlternateStack.hpp>
#include <dalnim/sys/internal/src/SafeMemory.hpp>
#include <dalnim/sys/internal/src/ThreadRegister.hpp>
#include <dalnim/sys/internal/src/ThreadStateCache.hpp>
#include <qv/pmx/src/perturb.hpp>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace com::kor::dal::nim::sys::internal {

namespace {

// The states of a ticket, its lowest bits.
constexpr std::uint64_t FREE = 0;
constexpr std::uint64_t ASKED = 1;
constexpr std::uint64_t WRITING = 2;
constexpr std::uint64_t DONE = 3;
constexpr std::uint64_t ABANDONED = 4;
constexpr std::uint64_t STATE_MASK = 7;
constexpr unsigned int STATE_BITS = 3;

// The value that accompanies the signal: a mark, the number of the question, and the index of the answer.
constexpr std::uint64_t COOKIE_MARK = 0x4e54;
constexpr unsigned int COOKIE_MARK_SHIFT = 48;
constexpr unsigned int COOKIE_NUMBER_SHIFT = 16;
constexpr std::uint64_t NUMBER_MASK = 0xffffffff;

/** Time for a thread that is already writing its answer when the time expires, in milliseconds. */
constexpr unsigned int GRACE_MS = 50;
/** Interval, in milliseconds, at which threads that have not answered are checked for their end. */
constexpr std::uint64_t CHECK_MS = 5;

/**
 * Stored once, under InitLock, with release order. The handler and claimAnswer() acquire it. Relaxed under
 * InitLock, in the child of a fork, which has one thread, and after claimAnswer() on the same thread. Threads
 * that have claimed no answer only compare the atomic IDs of the questions.
 */
std::atomic<ThreadAnswer*> all_answers;
/** Released once the handler is installed, to threads that send the signal. Relaxed under InitLock. */
std::atomic<int> installed_signal;
/** Relaxed: each increment returns another number, which is all that is passed on. */
std::atomic<std::uint64_t> last_inquiry;
/**
 * The answers from this index on have never been used. Only increases. Relaxed: a thread looks for its own
 * answers alone, and finds a value that includes those that it has claimed.
 */
std::atomic<std::size_t> used_answers;
/**
 * Incremented by each answer; threads that ask wait for its change. The increment releases the answer: a
 * thread that acquires the count finds the tickets of all answers that it counts.
 */
std::atomic<std::uint32_t> answer_count;
/**
 * The action that the handler replaced, for signals that this class has not sent. Written before the handler
 * is installed: the system orders that before a call of the handler on any thread.
 */
struct sigaction previous_action;

std::uint64_t stateOf(std::uint64_t ticket) noexcept
{
    return ticket & STATE_MASK;
}
std::uint64_t withState(std::uint64_t ticket, std::uint64_t state) noexcept
{
    return (ticket & ~STATE_MASK) | state;
}

std::uint64_t nowMs() noexcept
{
    std::timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

/** Waits until answer_count is no longer `seen`, at most so many milliseconds. */
void waitForAnswer(std::uint32_t seen, std::uint64_t ms) noexcept
{
    const std::timespec limit = {static_cast<std::time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
    ::syscall(SYS_futex, &answer_count, FUTEX_WAIT_PRIVATE, seen, &limit, nullptr, 0);
}

/** Calls a function handler of another owner. Other actions are ignored, as are signals without a handler. */
void callPrevious(int number, siginfo_t* info, void* context) noexcept
{
    if ((previous_action.sa_flags & SA_SIGINFO) != 0) {
        previous_action.sa_sigaction(number, info, context);
    } else if (previous_action.sa_handler != SIG_DFL && previous_action.sa_handler != SIG_IGN) {
        previous_action.sa_handler(number);
    }
}

void answerSignal(int number, siginfo_t* info, void* context)
{
    const ErrnoKeeper keeper;
    const auto cookie =
        static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(info->si_value.sival_ptr));
    const std::size_t index = cookie & ((1U << COOKIE_NUMBER_SHIFT) - 1);
    ThreadAnswer* const answers = all_answers.load(std::memory_order_acquire);
    if (info->si_code != SI_QUEUE || cookie >> COOKIE_MARK_SHIFT != COOKIE_MARK || info->si_pid != ::getpid()
        || index >= ThreadInquiry::CAPACITY || answers == nullptr) {
        callPrevious(number, info, context);
        return;
    }
    ThreadAnswer& answer = answers[index];
    std::uint64_t ticket = (cookie >> COOKIE_NUMBER_SHIFT & NUMBER_MASK) << STATE_BITS | ASKED;
    qv::perturb();
    if (!answer.ticket.compare_exchange_strong(ticket, withState(ticket, WRITING),
                                               std::memory_order_acquire)) {
        return;
    }
    qv::perturb();
    if (answer.stack != nullptr) {
        answer.isStackUsed = AlternateStack::adopt(answer.stack, answer.stackSize, context);
    } else {
        answer.describeCaller(context);
    }
    qv::perturb();
    ticket = withState(ticket, WRITING);
    // A failure acquires what the thread that has abandoned the answer wrote to it: the next user of the
    // memory synchronises with the store of FREE below alone, which ends the release sequence of ABANDONED.
    if (!answer.ticket.compare_exchange_strong(ticket, withState(ticket, DONE), std::memory_order_release,
                                               std::memory_order_acquire)) {
        answer.inquiry.store(0, std::memory_order_relaxed);
        answer.ticket.store(withState(ticket, FREE), std::memory_order_release);
    }
    answer_count.fetch_add(1, std::memory_order_release);
    ::syscall(SYS_futex, &answer_count, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

int highestUnusedSignal()
{
    for (int number = SIGRTMAX; number >= SIGRTMIN; --number) {
        struct sigaction action = {};
        if (::sigaction(number, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0
            && action.sa_handler == SIG_DFL) {
            return number;
        }
    }
    throw system_error(EBUSY, "Each real-time signal has a handler.");
}

/** Directs a question at a thread. Returns an error number. */
int sendQuestion(ThreadID_t tid, std::size_t index, std::uint64_t ticket) noexcept
{
    const std::uint64_t cookie = COOKIE_MARK << COOKIE_MARK_SHIFT
                                 | (ticket >> STATE_BITS & NUMBER_MASK) << COOKIE_NUMBER_SHIFT | index;
    siginfo_t info = {};
    info.si_code = SI_QUEUE;
    info.si_pid = ::getpid();
    info.si_uid = ::getuid();
    info.si_value.sival_ptr = reinterpret_cast<void*>(static_cast<std::uintptr_t>(cookie));
    const long status = ::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), tid, ThreadInquiry::signal(), &info);
    return status == 0 ? 0 : errno;
}

/** Claims a free answer, which is then ASKED. Returns its index, or CAPACITY. */
std::size_t claimAnswer(std::uint64_t& ticket) noexcept
{
    ThreadAnswer* const answers = all_answers.load(std::memory_order_acquire);
    for (std::size_t i = 0; answers != nullptr && i < ThreadInquiry::CAPACITY; ++i) {
        // Relaxed: only the value to compare.
        std::uint64_t found = answers[i].ticket.load(std::memory_order_relaxed);
        if (stateOf(found) != FREE) {
            continue;
        }
        // The state WRITING while the question is prepared: no signal refers to it yet.
        const std::uint64_t number = ((found >> STATE_BITS) + 1) & NUMBER_MASK;
        const std::uint64_t claimed = number << STATE_BITS | WRITING;
        if (answers[i].ticket.compare_exchange_strong(found, claimed, std::memory_order_acquire)) {
            ticket = claimed;
            std::size_t used = used_answers.load(std::memory_order_relaxed);
            while (used <= i && !used_answers.compare_exchange_weak(used, i + 1, std::memory_order_relaxed)) {
            }
            return i;
        }
    }
    return ThreadInquiry::CAPACITY;
}

/** Appends the path of a file of a thread in /proc, with a terminator. */
void threadPath(SafeText& path, ThreadID_t tid, const char* file) noexcept
{
    path << "/proc/self/task/" << tid << '/' << file << '\0';
}

/** Returns true if a thread that was asked has ended, so that it will never answer. */
bool hasEnded(const ThreadAnswer& answer) noexcept
{
    return ::syscall(SYS_tgkill, ::getpid(), answer.tid.load(std::memory_order_relaxed), 0) != 0
           && errno == ESRCH;
}

/** Returns true if the thread blocks the signal. */
bool blocksSignal(ThreadID_t tid, int number) noexcept
{
    constexpr std::size_t PATH_SIZE = 64;
    constexpr std::size_t FILE_SIZE = 2048;
    char path[PATH_SIZE];
    SafeText pathText(path, sizeof path);
    threadPath(pathText, tid, "status");
    char status[FILE_SIZE];
    const std::string_view text(status, SafeMemory::readFile(status, sizeof status, path));
    constexpr std::string_view LABEL = "SigBlk:\t";
    const std::size_t at = text.find(LABEL);
    if (at == std::string_view::npos) {
        return false;
    }
    std::uint64_t mask = 0;
    for (std::size_t i = at + LABEL.size(); i < text.size() && text[i] != '\n'; ++i) {
        const char digit = text[i];
        mask = mask << 4 | static_cast<std::uint64_t>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
    }
    return (mask >> static_cast<unsigned int>(number - 1) & 1) != 0;
}

/** Reads name, state and CPU time of a thread from /proc. */
void readKernelState(ThreadAnswer& answer) noexcept
{
    constexpr std::size_t PATH_SIZE = 64;
    constexpr std::size_t FILE_SIZE = 1024;
    // Field numbers after the name in parentheses.
    constexpr int USER_TICKS = 12;
    constexpr int SYSTEM_TICKS = 13;
    answer.state = '?';
    answer.cpuMs = 0;
    answer.name[0] = '\0';
    char path[PATH_SIZE];
    SafeText pathText(path, sizeof path);
    threadPath(pathText, answer.tid.load(std::memory_order_relaxed), "stat");
    char stat[FILE_SIZE];
    const std::string_view text(stat, SafeMemory::readFile(stat, sizeof stat, path));
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close + 2 >= text.size()) {
        return;
    }
    stat[close] = '\0';
    SafeMemory::readText(answer.name, sizeof answer.name, stat + open + 1);
    answer.state = text[close + 2];
    std::uint64_t ticks = 0;
    int field = 0;
    std::uint64_t number = 0;
    for (std::size_t i = close + 2; i < text.size() && field <= SYSTEM_TICKS; ++i) {
        if (text[i] == ' ') {
            ++field;
            if (field == USER_TICKS || field == SYSTEM_TICKS + 1) {
                ticks += field == USER_TICKS ? 0 : number;
            } else if (field == SYSTEM_TICKS) {
                ticks += number;
            }
            number = 0;
        } else if (text[i] >= '0' && text[i] <= '9') {
            number = number * 10 + static_cast<std::uint64_t>(text[i] - '0');
        }
    }
    const long perSecond = ::sysconf(_SC_CLK_TCK);
    answer.cpuMs = perSecond > 0 ? ticks * 1000 / static_cast<std::uint64_t>(perSecond) : 0;
}

/**
 * What earlier reports found in a thread. Written and read without a lock: a lost update is harmless.
 * `sinceMs` is stored first, and `tid` and `content` release it: a report that acquires the values of its
 * thread does not find the older time of another content, which would claim too long a stay.
 */
struct SeenThread
{
    std::atomic<ThreadID_t> tid;
    /** A hash of task and tracks. */
    std::atomic<std::uint64_t> content;
    /** When a report found this content first, on the monotonic clock, in milliseconds. */
    std::atomic<std::uint64_t> sinceMs;
};
constexpr std::size_t SEEN_COUNT = 2048;
SeenThread seen_threads[SEEN_COUNT];

/** Returns the time since an earlier report found the same task and innermost track; 0 if none did. */
std::uint64_t sameForMs(const ThreadAnswer& answer) noexcept
{
    // FNV-1a.
    std::uint64_t hash = 0xcbf29ce484222325;
    const auto add = [&hash](unsigned char byte) { hash = (hash ^ byte) * 0x100000001b3; };
    for (const char letter : answer.innermost()) {
        add(static_cast<unsigned char>(letter));
    }
    for (const std::uint32_t number : {answer.trackCount, answer.taskId}) {
        for (unsigned int shift = 0; shift < 32; shift += 8) {
            add(static_cast<unsigned char>(number >> shift));
        }
    }
    const ThreadID_t tid = answer.tid.load(std::memory_order_relaxed);
    const std::uint64_t now = nowMs();
    SeenThread& seen = seen_threads[static_cast<std::size_t>(tid) % SEEN_COUNT];
    if (seen.tid.load(std::memory_order_acquire) == tid
        && seen.content.load(std::memory_order_acquire) == hash) {
        return now - std::min(now, seen.sinceMs.load(std::memory_order_relaxed));
    }
    seen.sinceMs.store(now, std::memory_order_relaxed);
    seen.content.store(hash, std::memory_order_release);
    seen.tid.store(tid, std::memory_order_release);
    return 0;
}

/** Appends ID and name of a thread. */
void appendThread(SafeText& text, const ThreadAnswer& answer) noexcept
{
    text << "  thread " << answer.tid.load(std::memory_order_relaxed);
    if (answer.name[0] != '\0') {
        text << " \"" << answer.name << '"';
    }
}

/** Appends task and pool, or nothing. */
void appendTask(SafeText& text, const ThreadAnswer& answer) noexcept
{
    if (answer.hasTask) {
        text << "task " << answer.taskId << " \"" << answer.taskName << "\" (" << answer.taskType << ')';
    }
    if (answer.hasPool) {
        text << (answer.hasTask ? " of pool " : "pool ") << answer.poolId << " \"" << answer.poolName << '"';
    }
}

void appendLock(SafeText& text, const ThreadAnswer& answer) noexcept
{
    text << "waits for the lock at ";
    text.hex(answer.lockAddress) << ", held by thread " << answer.lockOwner;
}

}

const char* ThreadInquiry::outcomeText(ThreadAnswer::Outcome outcome) noexcept
{
    switch (outcome) {
    case ThreadAnswer::Outcome::SILENT:
        return "did not answer in time";
    case ThreadAnswer::Outcome::BLOCKS_SIGNAL:
        return "did not answer in time: it blocks the signal";
    case ThreadAnswer::Outcome::NOT_ASKED:
        return "could not be asked";
    default:
        return "";
    }
}
void ThreadInquiry::install(int signal)
{
    const InitLock lock(true);
    const int current = installed_signal.load(std::memory_order_relaxed);
    if (current != 0) {
        if (signal != 0 && signal != current) {
            throw system_error(EINVAL, "Another signal for reports of threads has been installed.");
        }
        return;
    }
    if (signal != 0 && (signal < SIGRTMIN || signal > SIGRTMAX)) {
        throw system_error(EINVAL, "Not a real-time signal.");
    }
    const int chosen = signal != 0 ? signal : highestUnusedSignal();
    if (all_answers.load(std::memory_order_relaxed) == nullptr) {
        // Pages are only allocated when they are written to.
        void* const memory = ::mmap(nullptr, CAPACITY * sizeof(ThreadAnswer), PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) {
            throw system_error(errno);
        }
        all_answers.store(static_cast<ThreadAnswer*>(memory), std::memory_order_release);
    }
    struct sigaction action = {};
    action.sa_sigaction = answerSignal;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    // Read first: the call that installs the handler would store the previous action after that.
    if (::sigaction(chosen, nullptr, &previous_action) != 0 || ::sigaction(chosen, &action, nullptr) != 0) {
        throw system_error(errno);
    }
    installed_signal.store(chosen, std::memory_order_release);
}

int ThreadInquiry::signal() noexcept
{
    return installed_signal.load(std::memory_order_acquire);
}

std::size_t ThreadInquiry::used() noexcept
{
    return used_answers.load(std::memory_order_relaxed);
}

void ThreadInquiry::resetInChild() noexcept
{
    // Relaxed: the child has one thread.
    ThreadAnswer* const answers = all_answers.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < used(); ++i) {
        const std::uint64_t ticket = answers[i].ticket.load(std::memory_order_relaxed);
        if (stateOf(ticket) != FREE) {
            answers[i].inquiry.store(0, std::memory_order_relaxed);
            answers[i].ticket.store(withState(ticket, FREE), std::memory_order_relaxed);
        }
    }
}

ThreadInquiry::ThreadInquiry(unsigned int timeoutMs, const void* context) noexcept
    : id(last_inquiry.fetch_add(1, std::memory_order_relaxed) + 1)
{
    const ErrnoKeeper keeper;
    ThreadRegister::forEach([this, context](ThreadID_t tid) { ask(tid, context); });
    await(timeoutMs);
}

ThreadInquiry::~ThreadInquiry()
{
    ThreadAnswer* const answers = all_answers.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < used(); ++i) {
        if (ownAnswer(i) != nullptr) {
            std::uint64_t ticket = answers[i].ticket.load(std::memory_order_acquire);
            answers[i].inquiry.store(0, std::memory_order_relaxed);
            if (stateOf(ticket) != WRITING
                || !answers[i].ticket.compare_exchange_strong(ticket, withState(ticket, ABANDONED),
                                                              std::memory_order_acq_rel)) {
                answers[i].ticket.store(withState(ticket, FREE), std::memory_order_release);
            }
        }
    }
}

const ThreadAnswer* ThreadInquiry::ownAnswer(std::size_t index) const noexcept
{
    const ThreadAnswer* const answers = all_answers.load(std::memory_order_relaxed);
    return answers != nullptr && answers[index].inquiry.load(std::memory_order_relaxed) == id
               ? answers + index
               : nullptr;
}

void ThreadInquiry::ask(ThreadID_t tid, const void* context) noexcept
{
    std::uint64_t ticket = 0;
    const std::size_t index = claimAnswer(ticket);
    if (index == CAPACITY) {
        ++omittedCount;
        return;
    }
    ThreadAnswer& answer = all_answers.load(std::memory_order_relaxed)[index];
    answer.tid.store(tid, std::memory_order_relaxed);
    answer.stack = nullptr;
    answer.outcome = ThreadAnswer::Outcome::ANSWERED;
    answer.inquiry.store(id, std::memory_order_relaxed);
    if (cached_state != nullptr && tid == static_cast<ThreadID_t>(::syscall(SYS_gettid))) {
        answer.describeCaller(context);
        answer.ticket.store(withState(ticket, DONE), std::memory_order_release);
        ++threadCount;
        return;
    }
    answer.ticket.store(withState(ticket, ASKED), std::memory_order_release);
    qv::perturb();
    const int error = signal() != 0 ? sendQuestion(tid, index, ticket) : EINVAL;
    if (error == 0) {
        ++threadCount;
        return;
    }
    answer.outcome = ThreadAnswer::Outcome::NOT_ASKED;
    ++threadCount;
    if (error == ESRCH) {
        withdraw(index);
    }
}

/** Leaves a thread that has ended out of the report. */
void ThreadInquiry::withdraw(std::size_t index) noexcept
{
    ThreadAnswer& answer = all_answers.load(std::memory_order_relaxed)[index];
    answer.inquiry.store(0, std::memory_order_relaxed);
    // Acquired: the thread may have answered just before it ended, and the next user overwrites that answer.
    answer.ticket.store(withState(answer.ticket.load(std::memory_order_acquire), FREE),
                        std::memory_order_release);
    --threadCount;
}

/** Waits for the answers, and sets the outcomes. */
void ThreadInquiry::await(unsigned int timeoutMs) noexcept
{
    const std::uint64_t begin = nowMs();
    std::uint64_t nextCheckMs = CHECK_MS;
    for (;;) {
        const std::uint32_t seen = answer_count.load(std::memory_order_acquire);
        const std::uint64_t elapsed = nowMs() - begin;
        const bool mustCheck = elapsed >= nextCheckMs;
        nextCheckMs = mustCheck ? elapsed + CHECK_MS : nextCheckMs;
        bool isAsking = false;
        bool isAnswering = false;
        for (std::size_t i = 0; i < used(); ++i) {
            const ThreadAnswer* const answer = ownAnswer(i);
            if (answer == nullptr || answer->outcome == ThreadAnswer::Outcome::NOT_ASKED) {
                continue;
            }
            const std::uint64_t state = stateOf(answer->ticket.load(std::memory_order_acquire));
            if (mustCheck && state == ASKED && hasEnded(*answer)) {
                withdraw(i);
                continue;
            }
            isAsking = isAsking || state == ASKED;
            isAnswering = isAnswering || state == WRITING;
        }
        const std::uint64_t limit = timeoutMs + (isAnswering ? GRACE_MS : 0);
        if ((!isAsking && !isAnswering) || elapsed >= limit) {
            break;
        }
        waitForAnswer(seen, std::min(limit - elapsed, CHECK_MS));
    }
    ThreadAnswer* const answers = all_answers.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < used(); ++i) {
        if (ownAnswer(i) != nullptr) {
            conclude(answers[i]);
        }
    }
}

void ThreadInquiry::conclude(ThreadAnswer& answer) noexcept
{
    std::uint64_t ticket = answer.ticket.load(std::memory_order_acquire);
    if (stateOf(ticket) == ASKED) {
        qv::perturb();
        // After this, the signal finds no question.
        if (answer.ticket.compare_exchange_strong(ticket, withState(ticket, DONE),
                                                  std::memory_order_acquire)) {
            if (answer.outcome == ThreadAnswer::Outcome::ANSWERED) {
                answer.outcome = ThreadAnswer::Outcome::SILENT;
            }
            ticket = withState(ticket, DONE);
        }
    }
    if (stateOf(ticket) == WRITING) {
        answer.outcome = ThreadAnswer::Outcome::SILENT;
    }
    if (answer.outcome == ThreadAnswer::Outcome::SILENT
        && blocksSignal(answer.tid.load(std::memory_order_relaxed), signal())) {
        answer.outcome = ThreadAnswer::Outcome::BLOCKS_SIGNAL;
    }
    silentCount += answer.outcome != ThreadAnswer::Outcome::ANSWERED ? 1 : 0;
    answer.sameForMs = answer.outcome == ThreadAnswer::Outcome::ANSWERED ? sameForMs(answer) : 0;
    readKernelState(answer);
}

void ThreadInquiry::append(SafeText& text, const ThreadAnswer& answer) noexcept
{
    appendThread(text, answer);
    text << ", state " << answer.state << ", " << answer.cpuMs << " ms of CPU time";
    if (answer.outcome != ThreadAnswer::Outcome::ANSWERED) {
        text << ", " << outcomeText(answer.outcome) << '\n';
        return;
    }
    if (answer.sameForMs != 0 && (answer.hasTask || answer.trackCount != 0)) {
        text << ", here for at least " << answer.sameForMs << " ms";
    }
    text << '\n';
    appendDetails(text, answer);
}

void ThreadInquiry::appendDetails(SafeText& text, const ThreadAnswer& answer) noexcept
{
    if (answer.hasTask || answer.hasPool) {
        text << "    ";
        appendTask(text, answer);
        text << '\n';
    }
    if (answer.tokenType[0] != '\0') {
        text << "    security token " << answer.tokenType << '\n';
    }
    if (answer.lockAddress != 0) {
        text << "    ";
        appendLock(text, answer);
        text << '\n';
    }
    std::size_t offset = 0;
    for (std::uint32_t i = 0; i < answer.labelCount; ++i) {
        text << "    [" << answer.trackCount - 1 - i << "] " << answer.label(offset) << '\n';
    }
    if (answer.labelCount < answer.trackCount) {
        text << "    and " << answer.trackCount - answer.labelCount << " more\n";
    }
}

void ThreadInquiry::appendLine(SafeText& text, const ThreadAnswer& answer) noexcept
{
    appendThread(text, answer);
    if (answer.outcome != ThreadAnswer::Outcome::ANSWERED) {
        text << ", state " << answer.state << ", " << outcomeText(answer.outcome) << '\n';
        return;
    }
    if (answer.hasTask || answer.hasPool) {
        text << ", ";
        appendTask(text, answer);
    }
    if (answer.lockAddress != 0) {
        text << ", ";
        appendLock(text, answer);
    }
    text << (answer.labelCount != 0 ? ", in " : "") << answer.innermost() << '\n';
}

void ThreadInquiry::append(SafeText& text, unsigned int timeoutMs) const noexcept
{
    text << "Threads of process " << ::getpid() << ": " << std::uint64_t(threadCount);
    if (silentCount != 0) {
        text << ", of which " << std::uint64_t(silentCount) << " did not answer within " << timeoutMs
             << " ms";
    }
    const std::uint64_t unknown = omittedCount + ThreadRegister::missing();
    if (unknown != 0) {
        text << "; " << unknown << " more could not be asked";
    }
    text << '\n';
    forEach([&text](const ThreadAnswer& answer) { append(text, answer); });
}

bool ThreadInquiry::giveStack(ThreadID_t tid, void* stack, std::size_t size, unsigned int timeoutMs,
                              bool& isUsed) noexcept
{
    const ErrnoKeeper keeper;
    isUsed = false;
    std::uint64_t ticket = 0;
    const std::size_t index = claimAnswer(ticket);
    if (index == CAPACITY) {
        return false;
    }
    ThreadAnswer& answer = all_answers.load(std::memory_order_relaxed)[index];
    answer.tid.store(tid, std::memory_order_relaxed);
    answer.stack = stack;
    answer.stackSize = size;
    answer.isStackUsed = false;
    answer.ticket.store(withState(ticket, ASKED), std::memory_order_release);
    const bool isSent = sendQuestion(tid, index, ticket) == 0;
    const std::uint64_t begin = nowMs();
    for (;;) {
        const std::uint32_t seen = answer_count.load(std::memory_order_acquire);
        std::uint64_t found = answer.ticket.load(std::memory_order_acquire);
        const std::uint64_t elapsed = nowMs() - begin;
        if (stateOf(found) == DONE) {
            isUsed = answer.isStackUsed;
            answer.ticket.store(withState(found, FREE), std::memory_order_release);
            return true;
        }
        if (!isSent || elapsed >= timeoutMs) {
            if (stateOf(found) == ASKED
                && answer.ticket.compare_exchange_strong(found, withState(found, FREE),
                                                         std::memory_order_acq_rel)) {
                return false;
            }
            if (stateOf(found) == WRITING
                && answer.ticket.compare_exchange_strong(found, withState(found, ABANDONED),
                                                         std::memory_order_acq_rel)) {
                // The thread may own the stack now.
                isUsed = true;
                return false;
            }
            continue;
        }
        waitForAnswer(seen, timeoutMs - elapsed);
    }
}

}
