#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/ThreadAnswer.hpp>

#include <dalnim/sys/internal/src/Registers.hpp>
#include <dalnim/sys/internal/src/SafeMemory.hpp>
#include <dalnim/sys/internal/src/SafeText.hpp>
#include <dalnim/sys/internal/src/ThreadStateCache.hpp>
#include <dalnim/sys/internal/src/TrackList.hpp>

#include <csignal>
#include <linux/futex.h>
#include <sys/syscall.h>
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
 * Determines the lock if the signal has interrupted a wait for a mutex, which the kernel restarts after the
 * handler. The word of a mutex that threads wait for is 2, and its owner follows 8 bytes later.
 */
void describeLock(ThreadAnswer& answer, const void* context) noexcept
{
    constexpr std::uint64_t CONTENDED = 2;
    constexpr std::size_t OWNER_OFFSET = 8;
    const Registers registers(context);
    const Registers::SystemCall call = registers.systemCall();
    if (call.number != SYS_futex
        || (call.arguments[1] & static_cast<std::uint64_t>(FUTEX_CMD_MASK)) != FUTEX_WAIT
        || call.arguments[2] != CONTENDED || !registers.isAtSystemCall()) {
        return;
    }
    const std::uint64_t lock = call.arguments[0];
    int owner = 0;
    if (SafeMemory::readValue(owner,
                              reinterpret_cast<const char*>(static_cast<std::uintptr_t>(lock)) + OWNER_OFFSET)
        && owner > 0 && ::syscall(SYS_tgkill, ::getpid(), owner, 0) == 0) {
        answer.lockAddress = lock;
        answer.lockOwner = owner;
    }
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
