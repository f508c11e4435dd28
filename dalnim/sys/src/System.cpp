#include <dalnim/dalbase.hpp>

#include <dalnim/sys/System.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <qv/pmx/host.h>

#include <atomic>
#include <cctype>
#include <memory>
#include <string>

#include <netdb.h>
#include <sys/socket.h>

namespace com::kor::dal::nim::sys {

namespace {

constexpr std::size_t HOST_NAME_SIZE = 512;
constexpr std::size_t NUMERIC_HOST_SIZE = 1025;

char host_name[HOST_NAME_SIZE];
std::size_t host_name_length;
/**
 * Set under InitLock when the two variables above are final. The store releases them to a thread whose first
 * load, an acquire, sees it. The load under the lock may be relaxed: the lock orders it after the store.
 */
std::atomic<bool> host_name_known{false};

struct AddrInfoDeleter
{
    void operator()(addrinfo* list) const noexcept
    {
        qv_si_freeaddrinfo(list);
    }
};
typedef std::unique_ptr<addrinfo, AddrInfoDeleter> AddrInfoList;

}

/**
 * Looks the host name up, under InitLock. An exception must not leave a pthread_once(); here it releases the
 * lock, and the next call tries again.
 */
static void _get_host_name()
{
    const InitLock lock(true);
    if (host_name_known.load(std::memory_order_relaxed)) {
        return;
    }
    const StackTrack track("hostname()", System::CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (qv_si_gethostname(host_name, HOST_NAME_SIZE) != 0) {
        throw system_error(1);
    }
    host_name[HOST_NAME_SIZE - 1] = '\0';
    char* c = host_name;
    for (; *c != '\0'; ++c) {
        *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
    }
    host_name_length = static_cast<std::size_t>(c - host_name);
    host_name_known.store(true, std::memory_order_release);
}

String System::hostname()
{
    return String(internal::host_name_text());
}

std::string_view internal::host_name_text()
{
    if (!host_name_known.load(std::memory_order_acquire)) {
        _get_host_name();
    }
    return {host_name, host_name_length};
}

StringVector System::hostIpAddress(int family)
{
    const StackTrack track("hostIpAddress()", CLASS_NAME, NAMESPACE_NAME, __LINE__);

    addrinfo hints = {};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;

    addrinfo* found = nullptr;
    const int rc = qv_si_getaddrinfo(hostname().c_str(), nullptr, &hints, &found);
    if (rc != 0) {
        throw system_error(rc, "si_getaddrinfo failed. family = " + std::to_string(family)
                                   + " rc = " + std::to_string(rc));
    }
    const AddrInfoList list(found);

    StringVector addresses;
    for (const addrinfo* entry = list.get(); entry != nullptr; entry = entry->ai_next) {
        char host[NUMERIC_HOST_SIZE] = "";
        if (qv_si_getnameinfo(entry->ai_addr, entry->ai_addrlen, host, sizeof host, nullptr, 0,
                              NI_NUMERICHOST)
            == 0) {
            addresses.emplace_back(host);
        }
    }
    return addresses;
}

ProcID_t System::procId()
{
    return qv_si_getpid();
}

ThreadID_t System::threadId()
{
    return internal::ThreadState::current().tid;
}

}
