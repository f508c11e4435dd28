#include "Changes.hpp"

#include <support/Errors.hpp>

#include <algorithm>
#include <array>
#include <csignal>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>

namespace nimlog {

namespace {

/**
 * Maximum wait, for changes without a notification: those by other hosts on a network file system, for
 * example.
 */
constexpr std::chrono::milliseconds POLL_INTERVAL(250);

}

Changes::Changes(const std::vector<std::string>& paths)
    : notifications(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    signals = nimtools::Descriptor(signalfd(-1, &ending, SFD_CLOEXEC));
    if (!signals) {
        throw nimtools::cannotRead("signals");
    }
    for (const std::string& path : paths) {
        const std::size_t slash = path.rfind('/');
        const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        if (notifications
            && inotify_add_watch(notifications.get(), directory.c_str(),
                                 IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE)
                   == -1) {
            notifications = nimtools::Descriptor();
        }
    }
}

bool Changes::isStopped()
{
    pollfd polled = {signals.get(), POLLIN, 0};
    return poll(&polled, 1, 0) > 0;
}

void Changes::wait(std::chrono::milliseconds limit)
{
    std::array<pollfd, 2> polled = {{{signals.get(), POLLIN, 0}, {notifications.get(), POLLIN, 0}}};
    poll(polled.data(), polled.size(), static_cast<int>(std::min(limit, POLL_INTERVAL).count()));
    if ((polled[1].revents & POLLIN) != 0) {
        // Discards the events: only their arrival matters.
        std::array<char, 4096> events;
        while (read(notifications.get(), events.data(), events.size()) > 0) {
        }
    }
}

}
