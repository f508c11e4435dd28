#include "Next.hpp"

#include <ctime>

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

using faults::Call;
using faults::fails;
using faults::nextError;

// dlsym() is not replaced: for the sanitizers, its result depends on the caller.

FAULTS_INTERPOSED void* dlopen(const char* path, int mode) noexcept
{
    FAULTS_NEXT(dlopen);
    // The next definition opens a missing file, so that dlerror() returns a message.
    return fails(Call::DLOPEN) ? next("/nowhere/no-such-library.so", mode) : next(path, mode);
}

FAULTS_INTERPOSED int dlclose(void* library) noexcept
{
    FAULTS_NEXT(dlclose);
    const int status = next(library);
    return fails(Call::DLCLOSE) ? -1 : status;
}

FAULTS_INTERPOSED int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                                  addrinfo** result)
{
    FAULTS_NEXT(getaddrinfo);
    const int error = nextError(Call::GETADDRINFO);
    return error != 0 ? error : next(node, service, hints, result);
}

FAULTS_INTERPOSED int getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t host_size,
                                  char* service, socklen_t service_size, int flags)
{
    FAULTS_NEXT(getnameinfo);
    const int error = nextError(Call::GETNAMEINFO);
    return error != 0 ? error : next(address, length, host, host_size, service, service_size, flags);
}

FAULTS_INTERPOSED int gethostname(char* name, size_t size) noexcept
{
    FAULTS_NEXT(gethostname);
    return fails(Call::GETHOSTNAME) ? -1 : next(name, size);
}

FAULTS_INTERPOSED int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    FAULTS_NEXT(clock_gettime);
    return fails(Call::CLOCK_GETTIME) ? -1 : next(clock, now);
}

FAULTS_INTERPOSED tm* localtime_r(const time_t* time, tm* result) noexcept
{
    FAULTS_NEXT(localtime_r);
    return fails(Call::LOCALTIME) ? nullptr : next(time, result);
}

FAULTS_INTERPOSED tm* gmtime_r(const time_t* time, tm* result) noexcept
{
    FAULTS_NEXT(gmtime_r);
    return fails(Call::GMTIME) ? nullptr : next(time, result);
}
