#ifndef DALNIM_SYS_SRC_CRASHTEXT_HPP
#define DALNIM_SYS_SRC_CRASHTEXT_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/sys/internal/src/SafeText.hpp>
#include <dalnim/sys/internal/src/ThreadAnswer.hpp>

#include <csignal>
#include <cstddef>
#include <string_view>

namespace com::kor::dal::nim::sys {

/** Why a report of a crash is written. */
struct CrashCause
{
    /** The signal with its information; null for a call of std::terminate. */
    const siginfo_t* info;
    /** The registers that the signal has interrupted, or null. */
    const void* context;
    /** For a call of std::terminate: the exception as text, of one or more lines without their indentation.
     */
    std::string_view exception;
};

/**
 * The parts of a report of a crash, each of which may fail if memory is damaged. All operations may be called
 * in signal handlers.
 */
class CrashText
{
public:
    CrashText() = delete;

    /** Size of the memory that append() requires, in bytes. */
    static const std::size_t MEMORY_SIZE;

    /**
     * Appends the whole report.
     * @param runPart  calls its argument with the second one; returns false if it failed
     */
    static void append(internal::SafeText& text, const CrashCause& cause, unsigned int threadTimeoutMs,
                       char* memory, bool (*runPart)(void (*part)(void*), void* argument)) noexcept;

private:
    struct Parts;
};

}

#endif
