#ifndef DALNIM_SYS_SYSTEM_HPP
#define DALNIM_SYS_SYSTEM_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <qv/pmx/api.h>

#include <ctime>

#include <sys/socket.h>

namespace com::kor::dal::nim::io {
class Properties;
}

namespace com::kor::dal::nim::sys {

/**
 * Services of the host and the process: names, addresses, IDs, clocks, the path of the executable.
 *
 * Thread safety: any thread may call any operation. The host name and the process path are looked up once;
 * subsequent calls acquire no lock.
 */
class DALNIM_API System
{
public:
    static constexpr const char CLASS_NAME[] = "System";

    /** @name Types */
    /** @{ */
    /** The types of the library; for their units, see Primitives.hpp. */
    typedef nim::ProcID_t ProcID_t;
    typedef nim::ThreadID_t ThreadID_t;
    typedef nim::TimeUS_t TimeUS_t;
    typedef nim::TimeMS_t TimeMS_t;
    typedef nim::TimeDCE_t TimeDCE_t;
    typedef nim::StringVector StringVector;
    /** @} */

    /** The parts of the process path. */
    enum PROCESS_PATH_OPT : int {
        /** Directory and name. */
        FULL_PROCESS_PATH = 0,
        /** The name without a directory. */
        EXECUTABLE_NAME_ONLY = 1,
        /** The directory, without a trailing "/" unless it is the root. */
        DIRECTORY_PATH_ONLY = 2
    };

    /**
     * Returns the host name in lower case, as it was at the first successful call.
     *
     * @throws system_error  1 (EPERM) if the host name cannot be read; the next call tries again.
     */
    static String hostname();

    /**
     * Returns the numeric addresses of this host, in the order of the resolver, including duplicates.
     *
     * @param family  AF_INET, AF_INET6, or AF_UNSPEC for both.
     * @throws system_error  the code of the resolver and `si_getaddrinfo failed. family = <family> rc =
     *                       <code>`; the exceptions of hostname().
     */
    static StringVector hostIpAddress(int family = AF_UNSPEC);

    /** Returns the process ID, in the child of a fork the child's. */
    static ProcID_t procId();

    /** Returns the kernel's thread ID of the calling thread. */
    static ThreadID_t threadId();

    /** Suspends the calling thread for the given time, or until a signal is handled. */
    static void sleep(unsigned int milliseconds);

    /** Returns the wall clock in microseconds since the epoch, also after January 2038. */
    static TimeUS_t timeMicros();

    /** Returns the wall clock in milliseconds since the epoch, truncated towards zero. */
    static TimeMS_t timeMillis();

    /** Returns timeMillis(). */
    static TimeMS_t time()
    {
        return timeMillis();
    }

    /** Returns the wall clock in intervals of 100 nanoseconds since 15 October 1582, as in a DCE UUID. */
    static TimeDCE_t dceTime();

    /**
     * Converts a time to broken-down local time.
     *
     * @param result   receives the local time.
     * @param timeval  seconds since the epoch.
     * @return `result`
     * @throws system_error  38 (ENOSYS) if the year is out of range.
     */
    static tm& localtime(tm& result, time_t timeval);

    /** As localtime(), in UTC. */
    static tm& utctime(tm& result, time_t timeval);

    /**
     * Returns the path of the running executable, or a part of it.
     *
     * The path is read from /proc/self/exe. If that fails, it is determined from the name with which the
     * process was started, the current directory, and the environment variables PWD and PATH.
     *
     * @param opt  the part; any other value selects the full path.
     * @throws system_error  2 (ENOENT) and a message that describes how to start the process, if the
     *                       directory cannot be determined. Subsequent calls return empty strings.
     */
    static String getProcessPath(PROCESS_PATH_OPT opt);

    /**
     * Configures the default logger from the keys in `opts` that start with "com.kor.dal.nim.log.Control.".
     * Settings without a key remain unchanged. If a value is invalid, this throws; settings that were applied
     * before remain in effect.
     */
    static void setConfiguration(const io::Properties& opts);

    System() = delete;
};

}

#endif
