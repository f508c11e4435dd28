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

/** Without notifications, and for folders whose changes on other hosts raise none. */
constexpr std::chrono::milliseconds LOOK_INTERVAL(250);

}

Changes::Changes(const std::string& path) : notifications(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
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
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    if (notifications
        && inotify_add_watch(notifications.get(), folder.c_str(),
                             IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE)
               == -1) {
        notifications = nimtools::Descriptor();
    }
}

bool Changes::isStopped()
{
    pollfd waited = {signals.get(), POLLIN, 0};
    return poll(&waited, 1, 0) > 0;
}

void Changes::wait(std::chrono::milliseconds limit)
{
    std::array<pollfd, 2> waited = {{{signals.get(), POLLIN, 0}, {notifications.get(), POLLIN, 0}}};
    poll(waited.data(), waited.size(), static_cast<int>(std::min(limit, LOOK_INTERVAL).count()));
    if ((waited[1].revents & POLLIN) != 0) {
        // They only tell that it is time to look.
        std::array<char, 4096> events;
        while (read(notifications.get(), events.data(), events.size()) > 0) {
        }
    }
}

}
