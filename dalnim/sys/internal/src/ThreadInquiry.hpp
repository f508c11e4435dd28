#ifndef DALNIM_SYS_INTERNAL_SRC_THREADINQUIRY_HPP
#define DALNIM_SYS_INTERNAL_SRC_THREADINQUIRY_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/sys/internal/src/SafeText.hpp>
#include <dalnim/sys/internal/src/ThreadAnswer.hpp>

#include <cstddef>
#include <cstdint>

namespace com::kor::dal::nim::sys::internal {

/**
 * Asks all threads of the ThreadRegister to describe themselves, and waits for their answers. Each thread
 * writes its own answer, in the handler of a real-time signal that is directed at it: no thread reads the
 * state of another one. Objects may be constructed in signal handlers, by several threads concurrently, and
 * in a process that crashes: there is no lock, and no memory is allocated.
 *
 * The memory of an answer passes from the thread that asks to the one that answers and back by its `ticket`:
 *
 *     FREE -> ASKED -> WRITING -> DONE -> FREE      the thread has answered
 *             ASKED -> FREE                         the time has expired; a signal that arrives later finds
 *                                                   another number in the ticket and does nothing
 *                      WRITING -> ABANDONED -> FREE the time has expired during the answer; the thread that
 *                                                   answers releases the memory
 */
class ThreadInquiry
{
public:
    /** Maximum number of threads of which there are answers at a time. */
    static constexpr std::size_t CAPACITY = 1024;

    /**
     * Allocates the memory and installs the handler. A second call with the same signal, or with 0, does
     * nothing.
     * @param signal  a real-time signal; 0 for the highest one that has the default action
     * @throws sys::system_error  22 (EINVAL) if `signal` is no real-time signal, or if another one has been
     *                            installed; 16 (EBUSY) if each real-time signal has a handler; the system's
     *                            error number if the memory or the handler is refused
     */
    static void install(int signal);
    /** Returns the signal that is directed at threads, or 0 before install(). */
    static int signal() noexcept;
    /** Releases the memory that threads of the parent used. To be called in the child of a fork. */
    static void resetInChild() noexcept;

    /**
     * Asks all threads, and waits.
     * @param timeoutMs  the maximum time, in milliseconds, for all threads
     * @param context    the registers of the calling thread that a signal has interrupted, or null
     */
    ThreadInquiry(unsigned int timeoutMs, const void* context) noexcept;
    /** Releases the answers. */
    ~ThreadInquiry();
    ThreadInquiry(const ThreadInquiry&) = delete;
    ThreadInquiry& operator=(const ThreadInquiry&) = delete;

    /** Calls `visit` with each answer, including those of threads that did not answer. */
    template <class Visit>
    void forEach(Visit visit) const
    {
        for (std::size_t i = 0; i < used(); ++i) {
            if (const ThreadAnswer* const answer = ownAnswer(i)) {
                visit(*answer);
            }
        }
    }
    /** Returns the number of threads that forEach() visits. */
    std::size_t size() const noexcept
    {
        return threadCount;
    }
    /** Returns the number of threads that did not answer. */
    std::size_t silent() const noexcept
    {
        return silentCount;
    }
    /** Returns the number of threads that could not be asked, since all memory was in use. */
    std::size_t omitted() const noexcept
    {
        return omittedCount;
    }

    /** Returns why a thread has not answered, or an empty string. */
    static const char* outcomeText(ThreadAnswer::Outcome outcome) noexcept;
    /** Appends a thread as some lines of text, each of which begins with two spaces. */
    static void append(SafeText& text, const ThreadAnswer& answer) noexcept;
    /** Appends task, pool, token, lock and tracks of a thread, on lines that begin with four spaces. */
    static void appendDetails(SafeText& text, const ThreadAnswer& answer) noexcept;
    /** Appends a thread as one line, with its innermost track. */
    static void appendLine(SafeText& text, const ThreadAnswer& answer) noexcept;
    /** Appends all threads, after a line with their number. */
    void append(SafeText& text, unsigned int timeoutMs) const noexcept;

    /**
     * Directs a signal at a thread that has the calling thread's handler exchange its alternate stack for
     * `stack`, unless it has one. Returns false if the thread does not do so in time; then it never will.
     */
    static bool giveStack(ThreadID_t tid, void* stack, std::size_t size, unsigned int timeoutMs,
                          bool& isUsed) noexcept;

private:
    /** Returns the number of answers that have ever been in use. */
    static std::size_t used() noexcept;

    const ThreadAnswer* ownAnswer(std::size_t index) const noexcept;
    void ask(ThreadID_t tid, const void* context) noexcept;
    void withdraw(std::size_t index) noexcept;
    void await(unsigned int timeoutMs) noexcept;
    void conclude(ThreadAnswer& answer) noexcept;

    const std::uint64_t id;
    std::size_t threadCount = 0;
    std::size_t silentCount = 0;
    std::size_t omittedCount = 0;
};

}

#endif
