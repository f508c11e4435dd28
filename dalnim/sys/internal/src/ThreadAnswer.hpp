#ifndef DALNIM_SYS_INTERNAL_SRC_THREADANSWER_HPP
#define DALNIM_SYS_INTERNAL_SRC_THREADANSWER_HPP

#include <dalnim/Primitives.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace com::kor::dal::nim::sys::internal {

class ThreadState;

/**
 * The description of a thread, which the thread itself writes in a signal handler, and memory of a fixed size
 * that is never freed: an answer that comes too late changes nothing else.
 */
struct ThreadAnswer
{
    static constexpr std::size_t NAME_SIZE = 16;
    static constexpr std::size_t TEXT_SIZE = 128;
    static constexpr std::size_t LABELS_SIZE = 3072;

    /** What became of the question. */
    enum class Outcome : std::uint8_t {
        /** The thread has answered. */
        ANSWERED,
        /** The thread did not answer in time. */
        SILENT,
        /** The thread did not answer in time, and blocks the signal. */
        BLOCKS_SIGNAL,
        /** The system has rejected the signal, or all memory for answers was in use. */
        NOT_ASKED
    };

    /**
     * The state in the lowest bits, above it a number that each question increments. See ThreadInquiry. Each
     * transition that passes the answer on releases it, and the next one acquires it; the other members can
     * therefore be plain or relaxed.
     */
    std::atomic<std::uint64_t> ticket;
    /**
     * The question to which this belongs; 0 if none. Written by the thread that asks. Other threads that ask
     * only compare it with the numbers of their own questions.
     */
    std::atomic<std::uint64_t> inquiry;
    /** Written by the thread that asks, before it asks. */
    std::atomic<ThreadID_t> tid;
    /** The following are written by the thread that asks, after the answer. */
    Outcome outcome;
    /** The kernel's letter for the state of the thread, such as 'S' for sleeping; '?' if unknown. */
    char state;
    /** CPU time that the thread has used, in milliseconds. */
    std::uint64_t cpuMs;
    /** The time for which task and innermost track are known to be the same, in milliseconds. */
    std::uint64_t sameForMs;
    /** The kernel's name of the thread. */
    char name[NAME_SIZE];

    /** An alternate stack for the thread, or null to ask for its description. Written before the question. */
    void* stack;
    /** In bytes. */
    std::size_t stackSize;

    // All that follows is written by the thread that answers.

    /** Whether the thread uses `stack` from now on, and owns it. */
    bool isStackUsed;

    TaskID_t taskId;
    TaskID_t poolId;
    /** Whether the thread runs a task; its strings may be empty. */
    bool hasTask;
    bool hasPool;
    char taskName[TEXT_SIZE];
    /** The class of the task's target, mangled. */
    char taskType[TEXT_SIZE];
    char poolName[TEXT_SIZE];
    /** Mangled; empty if the thread's context contains no security token. */
    char tokenType[TEXT_SIZE];
    /** The address of the lock that the thread waits for; 0 if none is known. */
    std::uint64_t lockAddress;
    /** The thread that holds it. */
    ThreadID_t lockOwner;
    /** Number of tracks, including those for which there is no room in `labels`. */
    std::uint32_t trackCount;
    /** Number of labels. */
    std::uint32_t labelCount;
    /** The labels of the innermost tracks, innermost first, each followed by a NUL. */
    char labels[LABELS_SIZE];

    /** Returns the label that begins at `offset`, which is then increased past it. */
    std::string_view label(std::size_t& offset) const noexcept
    {
        const std::string_view found(labels + offset);
        offset += found.size() + 1;
        return found;
    }
    /** Returns the label of the innermost track, or an empty string. */
    std::string_view innermost() const noexcept
    {
        return labelCount != 0 ? std::string_view(labels) : std::string_view();
    }

    /**
     * Describes the calling thread.
     * @param context  the registers that a signal has interrupted, from which the lock is determined; or null
     */
    void describeCaller(const void* context) noexcept;

    /**
     * Describes task, pool and token of the calling thread, for a higher layer that knows these classes. Null
     * until the library has been initialised, which the store releases. Called in signal handlers, which
     * acquire that.
     */
    static std::atomic<void (*)(ThreadAnswer& answer, const ThreadState& state) noexcept> describeTask;
};

}

#endif
