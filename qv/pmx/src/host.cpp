#include <qv/pmx/host.h>

#include <cerrno>

#include <netdb.h>
#include <unistd.h>

pid_t qv_si_getpid(void) noexcept
{
    return getpid();
}

qv_err_t qv_si_gethostname(char* name, size_t size) noexcept
{
    return gethostname(name, size) == 0 ? 0 : errno;
}

int qv_si_getaddrinfo(const char* node, const char* service, const struct addrinfo* hints,
                      struct addrinfo** result)
{
    return getaddrinfo(node, service, hints, result);
}

int qv_si_getnameinfo(const struct sockaddr* address, socklen_t address_size, char* host,
                      socklen_t host_size, char* service, socklen_t service_size, int flags)
{
    return getnameinfo(address, address_size, host, host_size, service, service_size, flags);
}

void qv_si_freeaddrinfo(struct addrinfo* list) noexcept
{
    if (list != nullptr) {
        freeaddrinfo(list);
    }
}
