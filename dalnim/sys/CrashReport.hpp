#ifndef DALNIM_SYS_CRASHREPORT_HPP
#define DALNIM_SYS_CRASHREPORT_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::sys {

/**
 * Writes a report when the process crashes: by SIGSEGV, SIGBUS, SIGILL, SIGFPE or SIGABRT, or because
 * `std::terminate` is called. The report is one record of severity FATAL. It is written to standard error
 * and, if the default logger writes to a file, to this file as well. It contains
 *
 *   - the signal with its cause and address, or the type and the text of the exception and the tracks of its
 *     construction; process, thread and time;
 *   - the task, pool and security token of the thread, and its tracks;
 *   - the native backtrace, each address as a module and an offset, which `nimlog --resolve` translates to
 *     functions and lines;
 *   - one line for each other thread that uses the library: its task and innermost track, and the lock that
 *     it waits for;
 *   - all modules with their addresses and build IDs.
 *
 * The report is written by the thread that crashes, on an alternate stack: also if its own stack is
 * exhausted, if it holds a lock of the log or of the allocator, and in a plug-in. It allocates no memory and
 * acquires no lock. If a part of the report itself fails, because memory is damaged, the others are written.
 * Several threads that crash concurrently write one report each, one after the other.
 *
 * Afterwards the signal is handled as before install(): by the previous handler with the same information, or
 * by the default action, with a core dump of the original registers if that is enabled. The previous
 * `std::terminate` handler is called as well.
 *
 * Each thread that uses the library has an alternate stack: install() gives one to the calling thread and to
 * all others that have used it, and later threads get one of about 40 KB at their first use. A thread on
 * which the application has set such a stack keeps that one, which should have 32 KB. If the system refuses
 * the memory, or if the limit of the process for its address space (`ulimit -v`) would then leave less than 4
 * MB, the thread continues without such a stack. Its crashes, and those of a thread that never uses the
 * library, are reported on its own stack; only if that is exhausted there is no report.
 */
class DALNIM_API CrashReport
{
public:
    static constexpr const char CLASS_NAME[] = "CrashReport";

    /** What is installed. */
    struct Options
    {
        /** Whether signals are reported. */
        bool signals = true;
        /** Whether calls of `std::terminate` are reported. */
        bool terminate = true;
        /** The real-time signal with which other threads are asked; see ThreadReport::install(). */
        int threadSignal = 0;
        /** The maximum time to wait for their answers, in milliseconds, for all threads together. */
        unsigned int threadTimeoutMs = 200;
    };

    CrashReport() = delete;

    /** Installs everything, with the default options. A second call does nothing. */
    static void install();
    /**
     * As above, with options. Installs ThreadReport as well.
     * @throws system_error    as ThreadReport::install(), and the system's error number if it refuses memory,
     *                         a descriptor or a handler. Nothing is reported then
     * @throws std::bad_alloc  if memory runs out
     */
    static void install(const Options& options);
    /** Returns true after install(). */
    static bool isInstalled() noexcept;
};

}

#endif
