#ifndef NIMHOST_SERVICEMANAGER_HPP
#define NIMHOST_SERVICEMANAGER_HPP

#include "Counters.hpp"

#include <chrono>
#include <cstdint>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace nimhost {

/**
 * Reports the state of the host to the service manager that started it. Without a service manager, all
 * operations do nothing.
 *
 * The protocol is that of sd_notify(3): datagrams of lines "NAME=VALUE" to the socket that the environment
 * variable NOTIFY_SOCKET names. It is documented as stable and open to other implementations. This one is
 * shorter than the code that would choose between libsystemd and no libsystemd when the host is built, needs
 * no library, and is therefore the same in every build.
 *
 * Not thread-safe: used by the main thread.
 */
class ServiceManager
{
public:
    /**
     * Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID, and removes them from the environment, so that
     * programs that a plug-in starts do not report in the name of the host. Must be called while the process
     * has a single thread.
     * @throws std::system_error if there is a service manager, and no socket can be created
     */
    explicit ServiceManager(const Counters& counters);
    ~ServiceManager();

    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    /** Reports that the host is running, or that it has finished a reload. */
    void reportReady(const std::string& status);
    /** Reports the beginning of a reload. */
    void reportReloading();
    /** Reports that the host is shutting down. Later reports of reloads are suppressed. */
    void reportStopping(const std::string& status);
    /**
     * Resets the watchdog of the service manager, unless requests have been waiting for a whole period of it
     * and no worker has started any. Must be called several times in each period.
     */
    void keepAlive();

private:
    typedef std::chrono::steady_clock Clock;

    bool readAddress(const std::string& path);
    void readWatchdog();
    /** Sends a message. Logs the first failure. */
    void report(const std::string& message);
    bool send(const std::string& message, int flags) const;

    const Counters& counters;
    /** Length 0 if there is no service manager. */
    sockaddr_un address = {};
    socklen_t addressLength = 0;
    int descriptor = -1;
    bool stopping = false;
    bool failed = false;

    /** Period of the watchdog; 0 without one. */
    std::chrono::microseconds period{0};
    Clock::time_point nextKeepAlive;
    /** When a worker last started a request, or none was waiting. */
    Clock::time_point lastProgress;
    std::uint64_t lastTasksRun = 0;
};

}

#endif
