#include "NimhostPluginFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using support::ChildProcess;
using support::writeFile;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

/** The socket of a service manager. */
class NotifySocket
{
public:
    /** @param name a path, or "@" and an abstract name */
    explicit NotifySocket(const std::string& name) : descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        if (name.front() == '@') {
            address.sun_path[0] = '\0';
        }
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
            throw std::runtime_error("bind " + name + ": " + std::strerror(errno));
        }
    }
    ~NotifySocket()
    {
        close(descriptor);
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    /** Returns the next message, or "nothing" if there is none within this time. */
    std::string next(int milliseconds = 15000) const
    {
        pollfd waiting = {descriptor, POLLIN, 0};
        if (poll(&waiting, 1, milliseconds) != 1) {
            return "nothing";
        }
        char bytes[5000];
        const ssize_t length = recv(descriptor, bytes, sizeof bytes, 0);
        return std::string(bytes, length > 0 ? static_cast<std::size_t>(length) : 0);
    }

    /** Returns the next message that does not only reset the watchdog. */
    std::string nextState() const
    {
        std::string message = next();
        while (message == "WATCHDOG=1") {
            message = next();
        }
        return message;
    }

private:
    const int descriptor;
};

std::int64_t monotonicMicros()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

/** A host that is started as a service manager starts it. */
class NimhostServiceTest : public NimhostPluginFixture
{
protected:
    std::string socketPath() const
    {
        return scratch.file("notify");
    }

    /** Starts a host with variables in its environment, of which $$ is its process ID. */
    std::unique_ptr<ChildProcess> start(const std::string& variables,
                                        const std::vector<std::string>& arguments) const
    {
        return std::make_unique<ChildProcess>(
            shellCommand("export " + variables + "; exec \"$0\" \"$@\"", arguments), scratch.path());
    }

    std::unique_ptr<ChildProcess> startService(const std::string& variables = "") const
    {
        return start("NOTIFY_SOCKET=" + socketPath() + " " + variables,
                     {"--service", "--threads", "1", "--config", sources()});
    }

    std::string sources() const
    {
        return configure(fileSettings(LOG + "output.mask = MODULENAME SEVERITY\n"), "/source/rate = 50\n");
    }

    static void end(ChildProcess& host, int status = 0)
    {
        host.signal(SIGTERM);
        ASSERT_TRUE(ends(host));
        EXPECT_EQ(host.wait(), status);
    }
};

const char READY[] = "READY=1\nSTATUS=Answers requests\n";

}

TEST_F(NimhostServiceTest, ReadyIsReportedAfterTheStartAndStoppingBeforeTheEnd)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host = startService();
    EXPECT_EQ(manager.next(), READY);
    EXPECT_THAT(logText(), HasSubstr("nimhost starts with 1 sources"));
    end(*host);
    EXPECT_EQ(manager.next(), "STOPPING=1\nSTATUS=Ends: it received a signal\n");
    EXPECT_EQ(manager.next(0), "nothing");
    EXPECT_THAT(logText(), HasSubstr(": it received a signal\n"));
    EXPECT_THAT(logText(), Not(HasSubstr("service manager")));
}

TEST_F(NimhostServiceTest, AFailedStartIsNeverReady)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host =
        start("NOTIFY_SOCKET=" + socketPath(), {"--service", "--config", scratch.file("absent")});
    ASSERT_TRUE(ends(*host));
    EXPECT_EQ(host->wait(), 2);
    EXPECT_EQ(manager.next(0), "nothing");
}

TEST_F(NimhostServiceTest, ReloadIsReportedWithItsTime)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host = startService();
    ASSERT_EQ(manager.next(), READY);

    const std::int64_t before = monotonicMicros();
    host->signal(SIGHUP);
    const std::string reloading = manager.next();
    const std::int64_t after = monotonicMicros();
    ASSERT_THAT(reloading, MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+\nSTATUS=Reloading\n"));
    const std::int64_t time = std::stoll(reloading.substr(reloading.find("USEC=") + 5));
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Answers requests, has reloaded its configuration\n");

    writeFile(scratch.file("test.properties"),
              support::readFile(scratch.file("test.properties")) + "pool/threads = 7\n");
    host->signal(SIGHUP);
    EXPECT_THAT(manager.next(), StartsWith("RELOADING=1\n"));
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Answers requests, has reloaded its configuration except for 1 "
                              "settings that require a restart\n");
    end(*host);
}

TEST_F(NimhostServiceTest, RejectedReloadIsReportedWithItsReason)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host = startService();
    ASSERT_EQ(manager.next(), READY);
    std::filesystem::remove(scratch.file("test.properties"));
    host->signal(SIGHUP);
    EXPECT_THAT(manager.next(), StartsWith("RELOADING=1\n"));
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Answers requests, keeps its configuration: cannot read "
                                  + scratch.file("test.properties") + ": No such file or directory\n");
    end(*host, 2);
}

TEST_F(NimhostServiceTest, StatusIsOneLineOfLimitedLength)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host = startService();
    ASSERT_EQ(manager.next(), READY);
    writeFile(scratch.file("test.properties"), support::readFile(scratch.file("test.properties"))
                                                   + "pool/threads = " + std::string(5000, '7') + "\n");
    host->signal(SIGHUP);
    EXPECT_THAT(manager.next(), StartsWith("RELOADING=1\n"));
    const std::string ready = manager.next();
    EXPECT_THAT(ready, MatchesRegex("READY=1\nSTATUS=Answers requests, keeps its configuration: .*7\n"));
    EXPECT_EQ(ready.size(), 1016U);
    end(*host, 2);
}

TEST_F(NimhostServiceTest, WatchdogIsResetSeveralTimesInItsPeriod)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host = startService("WATCHDOG_USEC=900000 WATCHDOG_PID=$$");
    ASSERT_EQ(manager.next(), READY);
    const std::int64_t began = monotonicMicros();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(manager.next(), "WATCHDOG=1");
    }
    // Five messages take at least four thirds of the period, since they are not sent more often than needed.
    EXPECT_GE(monotonicMicros() - began, 1100000);
    end(*host);
    EXPECT_THAT(manager.nextState(), StartsWith("STOPPING=1\n"));
}

TEST_F(NimhostServiceTest, WatchdogOfAnotherProcessIsNotReset)
{
    const NotifySocket manager(socketPath());
    for (const char* const variables :
         {"WATCHDOG_USEC=1000 WATCHDOG_PID=1", "WATCHDOG_USEC=0 WATCHDOG_PID=$$",
          "WATCHDOG_USEC=1x WATCHDOG_PID=$$", ""}) {
        const std::unique_ptr<ChildProcess> host = startService(variables);
        EXPECT_EQ(manager.next(), READY);
        // Each progress of the run would reset the watchdog, so that a message would come before this one.
        ASSERT_TRUE(logHolds("tasks run, longest wait"));
        end(*host);
        EXPECT_THAT(manager.next(), StartsWith("STOPPING=1\n")) << variables;
        std::filesystem::remove_all(scratch.file("log"));
    }
}

TEST_F(NimhostServiceTest, WatchdogIsNotResetWhileNoWorkerStartsAWaitingRequest)
{
    const NotifySocket manager(socketPath());
    const std::string path = document("d.xml", waitingRequest() + request("fine"));
    const std::unique_ptr<ChildProcess> host =
        start("NOTIFY_SOCKET=" + socketPath() + " WATCHDOG_USEC=600000 WATCHDOG_PID=$$",
              {"--config", configureOdd(), path});
    ASSERT_EQ(manager.next(), READY);
    ASSERT_TRUE(waitingRequestRuns());
    // Messages that were sent before a whole period without progress had passed; then none for three periods.
    int messages = 0;
    while (manager.next(1800) != "nothing" && messages < 50) {
        ++messages;
    }
    EXPECT_LT(messages, 50);

    endWaitingRequest();
    ASSERT_TRUE(ends(*host));
    EXPECT_EQ(host->wait(), 0);
    EXPECT_EQ(manager.nextState(), "STOPPING=1\nSTATUS=Ends: all work is done\n");
}

TEST_F(NimhostServiceTest, WatchdogIsResetWhileARequestRunsAndNoneWaits)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host =
        start("NOTIFY_SOCKET=" + socketPath() + " WATCHDOG_USEC=300000 WATCHDOG_PID=$$",
              {"--config", configureOdd(), document("d.xml", waitingRequest())});
    ASSERT_EQ(manager.next(), READY);
    ASSERT_TRUE(waitingRequestRuns());
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(manager.next(), "WATCHDOG=1");
    }
    endWaitingRequest();
    ASSERT_TRUE(ends(*host));
    EXPECT_EQ(host->wait(), 0);
}

TEST_F(NimhostServiceTest, ReloadDuringTheShutdownIsNotReported)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host = start(
        "NOTIFY_SOCKET=" + socketPath(), {"--config", configureOdd(), document("d.xml", waitingRequest())});
    ASSERT_EQ(manager.next(), READY);
    ASSERT_TRUE(waitingRequestRuns());
    host->signal(SIGTERM);
    EXPECT_THAT(manager.next(), StartsWith("STOPPING=1\n"));
    host->signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has reloaded"));
    endWaitingRequest();
    ASSERT_TRUE(ends(*host));
    EXPECT_EQ(host->wait(), 0);
    EXPECT_EQ(manager.next(0), "nothing");
}

TEST_F(NimhostServiceTest, AbstractSocketIsSupported)
{
    const std::string name = "@nimhost-" + std::to_string(getpid());
    const NotifySocket manager(name);
    const std::unique_ptr<ChildProcess> host =
        start("NOTIFY_SOCKET=" + name, {"--service", "--threads", "1", "--config", sources()});
    EXPECT_EQ(manager.next(), READY);
    end(*host);
}

TEST_F(NimhostServiceTest, UnreachableManagerIsLoggedOnce)
{
    const std::unique_ptr<ChildProcess> host = startService("WATCHDOG_USEC=1000 WATCHDOG_PID=$$");
    const std::string warning = "WARNING : cannot notify the service manager: No such file or directory\n";
    ASSERT_TRUE(logHolds(warning));
    host->signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has reloaded"));
    end(*host);
    const std::string text = logText();
    EXPECT_EQ(text.find(warning), text.rfind(warning));
}

TEST_F(NimhostServiceTest, UnusableAddressCountsAsNoManager)
{
    for (const std::string& address :
         {std::string("vsock:2:1"), std::string("@"), std::string("relative"), "/" + std::string(200, 'x')}) {
        const std::unique_ptr<ChildProcess> host =
            start("NOTIFY_SOCKET=" + address + " WATCHDOG_USEC=1000",
                  {"--threads", "1", "--records", "1", "--config", sources()});
        ASSERT_TRUE(ends(*host));
        EXPECT_EQ(host->wait(), 0) << address;
        EXPECT_EQ(host->errors(), "") << address;
        EXPECT_THAT(logText(), Not(HasSubstr("service manager"))) << address;
    }
}

TEST_F(NimhostServiceTest, ServiceExcludesLimits)
{
    const std::string line = "nimhost: --service sets no limit: it excludes --seconds and --records";
    expectRejected({"--service", "--seconds", "1"}, line);
    expectRejected({"--records", "1", "--service"}, line);
}

TEST_F(NimhostServiceTest, ServiceRunsLongerThanTheDefault)
{
    const NotifySocket manager(socketPath());
    const std::unique_ptr<ChildProcess> host = startService("WATCHDOG_USEC=1500000 WATCHDOG_PID=$$");
    ASSERT_EQ(manager.next(), READY);
    const std::int64_t began = monotonicMicros();
    while (monotonicMicros() - began < 5500000) {
        ASSERT_EQ(manager.next(), "WATCHDOG=1");
    }
    end(*host);
}
