#ifndef DALNIM_SYS_THREADREPORT_HPP
#define DALNIM_SYS_THREADREPORT_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <iosfwd>
#include <vector>

namespace com::kor::dal::nim::sys {

/**
 * A snapshot of all threads that have used the library: what each of them runs, in which tracks it is, and
 * which lock it waits for.
 *
 * A thread describes itself, in the handler of a real-time signal that is directed at it: install() chooses
 * the signal. It answers wherever it is, also while it waits for a lock or in a system call, which the kernel
 * restarts unless signal(7) lists it as one that a handler always interrupts, such as poll() or nanosleep().
 * A thread that blocks the signal, or that the kernel does not schedule, does not answer in time; that is an
 * entry of the report as well.
 *
 * If install() has not been called, nothing is installed, and no thread is ever interrupted.
 *
 * Thread safety: any thread may call any operation, several of them concurrently.
 */
class DALNIM_API ThreadReport
{
public:
    static constexpr const char CLASS_NAME[] = "ThreadReport";

    /** The default time-out of a report, in milliseconds, for all threads together. */
    static constexpr unsigned int DEFAULT_TIMEOUT_MS = 500;

    /** One thread. */
    struct Entry
    {
        /** The kernel's ID of the thread, as `ps -L` shows it. */
        ThreadID_t tid;
        /** The kernel's name of the thread, at most 15 bytes. */
        String name;
        /** The kernel's letter for its state, such as 'R' for running and 'S' for sleeping; '?' if unknown.
         */
        char state;
        /** CPU time that it has used, in milliseconds. */
        TimeMS_t cpuMs;
        /** Whether it has answered. If not, all members below are empty, except `silence`. */
        bool hasAnswered;
        /** Why it has not answered, such as "did not answer in time"; otherwise empty. */
        String silence;
        /** The labels of its tracks, innermost first, as StackTrace::trace() contains them. */
        StringVector tracks;
        /** Number of outer tracks that `tracks` does not contain, because all labels exceed 3 KB. */
        UInt32_t omittedTracks;
        /** Whether it runs a task. A task that has just been destroyed has an ID of 0, or empty names. */
        bool hasTask;
        /** The ID of the task, or 0. */
        TaskID_t taskId;
        /** The name of the task; at most 127 bytes of it, as of all other names. */
        String taskName;
        /** The demangled name of the class of the task's target, or of the task if it is its own target. */
        String taskType;
        /** Whether it runs a task of a pool. */
        bool hasPool;
        /** The ID of the pool, or 0. */
        TaskID_t poolId;
        /** The name of the pool. */
        String poolName;
        /** The demangled name of the class of its security token, or empty. */
        String tokenType;
        /** The address of the mutex that it waits for without a time limit; 0 if it waits for none. */
        PointerInt_t lockAddress;
        /** The thread that holds this mutex, or 0. */
        ThreadID_t lockOwner;
        /**
         * The time, in milliseconds, for which at least the task and the innermost track have been the same:
         * since an earlier report of this process. 0 in the first report that contains them. Measuring the
         * exact time would slow down each track.
         */
        TimeMS_t sameForMs;
    };

    /**
     * Installs the signal with which threads are asked. A second call with the same signal, or with 0, does
     * nothing.
     * @param realTimeSignal  a signal from SIGRTMIN to SIGRTMAX that the application does not use; 0 for the
     *                        highest one without a handler. Signals of this number that this class has not
     *                        sent are passed to the handler that was installed before
     * @throws system_error  22 (EINVAL), "Not a real-time signal.", or "Another signal for reports of threads
     *                       has been installed."; 16 (EBUSY), "Each real-time signal has a handler."; the
     *                       system's error number if it refuses memory or the handler
     */
    static void install(int realTimeSignal = 0);
    /** Returns the signal with which threads are asked, or 0 before install(). */
    static int realTimeSignal() noexcept;

    /**
     * Has a signal of the process, such as SIGUSR2, write a report. The report is written by the thread that
     * receives the signal, in its handler: it waits for the time-out at most, and acquires no lock. A signal
     * that arrives during a report on another thread is ignored. Calls install().
     * @param signal      replaces the handler of this signal
     * @param descriptor  an open file; -1 for standard error and, if the default logger writes to a file,
     * that file as well, as a record of severity NOTICE
     * @param timeoutMs   in milliseconds, for all threads together
     * @throws system_error  as install(), and the system's error number if the signal may not have a handler
     */
    static void installSignal(int signal, int descriptor = -1, unsigned int timeoutMs = DEFAULT_TIMEOUT_MS);

    /**
     * Takes a snapshot. Threads of which 1,024 answers are being collected concurrently are omitted; so is a
     * thread that ends or starts during the call. If install() has not been called, all threads are omitted.
     * @param timeoutMs  the maximum time to wait, in milliseconds, for all threads together
     * @throws std::bad_alloc  if memory runs out
     */
    explicit ThreadReport(unsigned int timeoutMs = DEFAULT_TIMEOUT_MS);

    /** Returns the threads, in no particular order. */
    const std::vector<Entry>& threads() const noexcept
    {
        return entries;
    }
    /** Returns the number of threads that could not be asked and are not among threads(). */
    unsigned int omitted() const noexcept
    {
        return omittedCount;
    }
    /** Returns the number of threads that have not answered. */
    unsigned int silent() const noexcept;

    /** Returns the report as text: a line with the number of threads, then some lines for each of them. */
    String toString() const;

private:
    std::vector<Entry> entries;
    unsigned int omittedCount;
};

/** Writes the report as text. */
DALNIM_API std::ostream& operator<<(std::ostream& os, const ThreadReport& report);

}

#endif
