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
 * What the library asks of the process and the host: who they are, what time it is, where the
 * executable lies.
 *
 * All operations may be called from any thread. The host's name and the process path are found
 * once and answered from memory, without a lock, from then on.
 */
class DALNIM_API System
{
public:
    static constexpr const char CLASS_NAME[] = "System";

    /** @name Types */
    /** @{ */
    /** As of the library; see Primitives.hpp for their units. */
    typedef nim::ProcID_t ProcID_t;
    typedef nim::ThreadID_t ThreadID_t;
    typedef nim::TimeUS_t TimeUS_t;
    typedef nim::TimeMS_t TimeMS_t;
    typedef nim::TimeDCE_t TimeDCE_t;
    typedef nim::StringVector StringVector;
    /** @} */

    /** Which part of the process path is asked for. */
    enum PROCESS_PATH_OPT : int {
        /** The directory and the name. */
        FULL_PROCESS_PATH = 0,
        /** The name without a directory. */
        EXECUTABLE_NAME_ONLY = 1,
        /** The directory, with no "/" at its end unless it is the root. */
        DIRECTORY_PATH_ONLY = 2
    };

    /**
     * The host's name in lower case, as it was at the first call.
     *
     * @throws system_error  1, when the host has no name to give; the next call asks again.
     */
    static String hostname();

    /**
     * The numeric addresses of this host, in the resolver's order and with its duplicates.
     *
     * @param family  AF_INET, AF_INET6, or AF_UNSPEC for both.
     * @throws system_error  the resolver's code and `si_getaddrinfo failed. family = <family> rc = <code>`;
     *                       whatever hostname() throws.
     */
    static StringVector hostIpAddress(int family = AF_UNSPEC);

    /** The number of the calling process; in the child after fork(), the child's. */
    static ProcID_t procId();

    /** The kernel's number of the calling thread. */
    static ThreadID_t threadId();

    /** Suspends the calling thread for that long, or until a signal is handled. */
    static void sleep(unsigned int milliseconds);

    /** The wall clock in microseconds since the epoch, also after January 2038. */
    static TimeUS_t timeMicros();

    /** The wall clock in milliseconds since the epoch, truncated towards zero. */
    static TimeMS_t timeMillis();

    /** timeMillis() */
    static TimeMS_t time()
    {
        return timeMillis();
    }

    /** The wall clock in intervals of 100 nanoseconds since 15 October 1582, as in a DCE UUID. */
    static TimeDCE_t dceTime();

    /**
     * Breaks `timeval`, in seconds since the epoch, down in the time zone of the process.
     *
     * @return `result`
     * @throws system_error  38, when the year does not fit.
     */
    static tm& localtime(tm& result, time_t timeval);

    /** The same in UTC. */
    static tm& utctime(tm& result, time_t timeval);

    /**
     * The path of the running executable, or the part of it that `opt` selects; any other value
     * selects all of it.
     *
     * It is /proc/self/exe. Without that it is put together from the name the process was started
     * by, the current directory, and the environment variables PWD and PATH.
     *
     * @throws system_error  2 and a text that tells how to start the process, when no directory is
     *                       found. Later calls give empty strings.
     */
    static String getProcessPath(PROCESS_PATH_OPT opt);

    /**
     * Configures the default logger from the keys below "com.kor.dal.nim.log.Control." in `opts`.
     * Settings that `opts` does not name stay as they are. A bad value ends the call with an
     * exception and leaves in force what was set before it.
     */
    static void setConfiguration(const io::Properties& opts);

    System() = delete;
};

}

#endif
