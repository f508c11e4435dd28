#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/ThreadAnswer.hpp>

#include <dalnim/sys/internal/src/SafeMemory.hpp>
#include <dalnim/sys/internal/src/SafeText.hpp>
#include <dalnim/sys/internal/src/ThreadStateCache.hpp>
#include <dalnim/sys/internal/src/TrackList.hpp>

#include <csignal>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

namespace com::kor::dal::nim::sys::internal {

std::atomic<void (*)(ThreadAnswer&, const ThreadState&) noexcept> ThreadAnswer::describeTask;

namespace {

void describeTracks(ThreadAnswer& answer, const ThreadState& thread) noexcept
{
    const TrackList tracks(thread.where);
    answer.trackCount = static_cast<std::uint32_t>(tracks.size());
    SafeText labels(answer.labels, sizeof answer.labels);
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const std::size_t begin = labels.size();
        TrackList::appendLabel(labels, tracks[i]);
        labels << '\0';
        if (labels.isTruncated()) {
            labels.truncate(begin);
            break;
        }
        ++answer.labelCount;
    }
}

/**
 * Determines the lock if the signal has interrupted a wait for a mutex. The kernel restarts this wait after
 * the handler: the registers contain the system call and its arguments again. The word of a mutex that
 * threads wait for is 2, and its owner follows 8 bytes later.
 */
void describeLock(ThreadAnswer& answer, const void* context) noexcept
{
#if defined(__x86_64__)
    constexpr unsigned char SYSTEM_CALL[] = {0x0f, 0x05};
    constexpr std::uint64_t CONTENDED = 2;
    constexpr std::size_t OWNER_OFFSET = 8;
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    const auto value = [&registers](int number) { return static_cast<std::uint64_t>(registers[number]); };
    const auto pointer = [&value](int number) {
        return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(value(number)));
    };
    unsigned char code[2] = {};
    if (value(REG_RAX) != SYS_futex
        || (value(REG_RSI) & static_cast<std::uint64_t>(FUTEX_CMD_MASK)) != FUTEX_WAIT
        || value(REG_RDX) != CONTENDED || !SafeMemory::read(code, pointer(REG_RIP), sizeof code)
        || code[0] != SYSTEM_CALL[0] || code[1] != SYSTEM_CALL[1]) {
        return;
    }
    int owner = 0;
    if (SafeMemory::readValue(owner, pointer(REG_RDI) + OWNER_OFFSET) && owner > 0
        && ::syscall(SYS_tgkill, ::getpid(), owner, 0) == 0) {
        answer.lockAddress = value(REG_RDI);
        answer.lockOwner = owner;
    }
#else
    static_cast<void>(answer);
    static_cast<void>(context);
#endif
}

}

void ThreadAnswer::describeCaller(const void* context) noexcept
{
    const ErrnoKeeper keeper;
    taskId = 0;
    poolId = 0;
    hasTask = false;
    hasPool = false;
    taskName[0] = '\0';
    taskType[0] = '\0';
    poolName[0] = '\0';
    tokenType[0] = '\0';
    lockAddress = 0;
    lockOwner = 0;
    trackCount = 0;
    labelCount = 0;
    const ThreadState* const thread = cached_state;
    if (thread != nullptr) {
        describeTracks(*this, *thread);
        if (const auto describe = describeTask.load(std::memory_order_acquire)) {
            describe(*this, *thread);
        }
    }
    if (context != nullptr) {
        describeLock(*this, context);
    }
}

}
