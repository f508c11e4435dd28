#ifndef DALNIM_SYS_INTERNAL_SRC_EVIDENCEOUTPUT_HPP
#define DALNIM_SYS_INTERNAL_SRC_EVIDENCEOUTPUT_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/sys/internal/src/SafeText.hpp>

#include <atomic>
#include <ctime>
#include <string_view>

namespace com::kor::dal::nim::sys::internal {

/**
 * Where reports of crashes and threads are written: standard error, and the file of the default logger. The
 * log keeps a descriptor on its current file up to date, under a number that never changes while this class
 * has it: the kernel replaces the file in one step, so that a signal handler can write to it at any moment,
 * also while another thread, or its own, rotates the log or holds its locks.
 */
class EvidenceOutput
{
public:
    EvidenceOutput() = delete;

    /** The fields of a report's record that the caller knows. */
    struct Record
    {
        const char* severity;
        /** Source file without directories and ending. */
        const char* source;
        std::uint32_t line;
    };

    /** How the log writes its records, as far as a signal handler can do so, too. Set by the log. */
    struct LogFormat
    {
        /** Appends the prefix of a record with its terminator. */
        void (*appendPrefix)(SafeText& text, const Record& record, const std::timespec& when,
                             ThreadID_t tid) noexcept;
        /** Returns true if the log escapes newlines within records. */
        bool (*escapes)() noexcept;
        /** Calls followLog() with the log's current file. Not in a signal handler. Throws as the log does. */
        void (*publish)();
    };
    /** Stored when the library is loaded: released to handlers on any thread, which acquire it. */
    static std::atomic<const LogFormat*> logFormat;

    /**
     * Reserves the descriptor of the log's file, and has the log keep it up to date. May be called again.
     * @throws sys::system_error  if no descriptor is available, with the system's error number
     */
    static void followLog();
    /** Returns true after followLog(). */
    static bool isFollowingLog() noexcept
    {
        return logDescriptor.load(std::memory_order_acquire) != NONE;
    }
    /** For the log: reports are written to the file of `descriptor` from now on; -1 for no file. */
    static void setLogFile(int descriptor) noexcept;

    /**
     * Writes a report of which the first line has no prefix yet, as one record: to the log's file if there is
     * one, and to standard error. May be called in signal handlers; gives up a pipe that no process reads.
     * @param memory  for the record, of `size` bytes
     */
    static void writeRecord(const Record& record, std::string_view report, char* memory,
                            std::size_t size) noexcept;
    /** Writes a text to a descriptor. May be called in signal handlers. */
    static void write(int descriptor, std::string_view text) noexcept;

private:
    static constexpr int NONE = -1;

    static void reserve();

    /**
     * The descriptor, or NONE. Stored once, under InitLock, with release order; loaded with acquire order. A
     * change of the log's file finds it, or precedes the call of publish() in the order of the log's locks.
     */
    static std::atomic<int> logDescriptor;
    /**
     * Whether the descriptor leads to a file of the log. Stored after the descriptor has been replaced, with
     * release order: a writer that acquires `true` also finds `logDescriptor`.
     */
    static std::atomic<bool> hasLogFile;
};

}

#endif
