/**
 * A program on a made-up host: its definitions replace the C library's functions, for the library too. A test
 * can therefore choose the host name, the time and the path of the executable, and can see the library's
 * calls. Each run is a new process, because the library computes these values once.
 *
 *     PROBE_HOST_NAME      the host name
 *     PROBE_HOST_FAILURES  how many calls of gethostname() fail first
 *     PROBE_CLOCK          "<seconds> <nanoseconds>" of the wall clock
 *     PROBE_PID            the process ID
 *     PROBE_EXE            the target of /proc/self/exe; "!" if the link cannot be read
 *     PROBE_NO_LOADER      the process cannot be opened as a library
 *     PROBE_USER           the effective user ID during the calls
 */

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/UniqueID.hpp>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#define INTERPOSED extern "C" __attribute__((visibility("default")))

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::System;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::sys::UniqueID;

std::atomic<int> name_calls{0};
std::atomic<int> links_read{0};
int lists_freed = 0;
bool fake_addresses = false;

}

INTERPOSED int gethostname(char* name, size_t size) noexcept
{
    const int call = ++name_calls;
    const char* const failures = std::getenv("PROBE_HOST_FAILURES");
    if (failures != nullptr && call <= std::atoi(failures)) {
        errno = EFAULT;
        return -1;
    }
    const char* const fake = std::getenv("PROBE_HOST_NAME");
    utsname host = {};
    uname(&host);
    std::snprintf(name, size, "%s", fake != nullptr ? fake : host.nodename);
    return 0;
}

INTERPOSED int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    const char* const fake = clock == CLOCK_REALTIME ? std::getenv("PROBE_CLOCK") : nullptr;
    if (fake == nullptr) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    char* rest = nullptr;
    now->tv_sec = std::strtol(fake, &rest, 10);
    now->tv_nsec = std::strtol(rest, nullptr, 10);
    return 0;
}

INTERPOSED int clock_nanosleep(clockid_t, int, const timespec* interval, timespec*)
{
    std::printf("asked for %ld s %ld ns\n", static_cast<long>(interval->tv_sec), interval->tv_nsec);
    return EINTR;
}

INTERPOSED pid_t getpid() noexcept
{
    const char* const fake = std::getenv("PROBE_PID");
    return fake != nullptr ? std::atoi(fake) : static_cast<pid_t>(syscall(SYS_getpid));
}

INTERPOSED ssize_t readlink(const char* path, char* buffer, size_t size) noexcept
{
    const char* const fake = std::getenv("PROBE_EXE");
    if (std::strcmp(path, "/proc/self/exe") != 0) {
        return syscall(SYS_readlinkat, AT_FDCWD, path, buffer, size);
    }
    ++links_read;
    if (fake == nullptr) {
        return syscall(SYS_readlinkat, AT_FDCWD, path, buffer, size);
    }
    if (std::strcmp(fake, "!") == 0) {
        errno = ENOENT;
        return -1;
    }
    // As the system call does: without a terminator.
    const size_t length = std::strlen(fake) < size ? std::strlen(fake) : size;
    std::memset(buffer, '#', size);
    std::memcpy(buffer, fake, length);
    return static_cast<ssize_t>(length);
}

INTERPOSED void* dlopen(const char* file, int mode) noexcept
{
    if (file == nullptr && std::getenv("PROBE_NO_LOADER") != nullptr) {
        return nullptr;
    }
    typedef void* (*Function)(const char*, int);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "dlopen"))(file, mode);
}

INTERPOSED int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** list)
{
    if (!fake_addresses) {
        typedef int (*Function)(const char*, const char*, const addrinfo*, addrinfo**);
        return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"))(node, service, hints, list);
    }
    std::printf("asked for %s, %s, family %d, type %d, protocol %d, flags %d\n", node,
                service != nullptr ? service : "no service", hints->ai_family, hints->ai_socktype,
                hints->ai_protocol, hints->ai_flags);

    static sockaddr_in first = {};
    first.sin_family = AF_INET;
    inet_pton(AF_INET, "192.0.2.1", &first.sin_addr);
    static sockaddr_in6 second = {};
    second.sin6_family = AF_INET6;
    inet_pton(AF_INET6, "2001:db8::1", &second.sin6_addr);
    static sockaddr nameless = {};
    nameless.sa_family = 250;

    static addrinfo entries[4] = {};
    const auto enter = [](addrinfo& entry, sockaddr* address, socklen_t size, addrinfo* next) {
        entry.ai_family = address->sa_family;
        entry.ai_addr = address;
        entry.ai_addrlen = size;
        entry.ai_next = next;
    };
    enter(entries[0], reinterpret_cast<sockaddr*>(&first), sizeof first, &entries[1]);
    enter(entries[1], &nameless, sizeof nameless, &entries[2]);
    enter(entries[2], reinterpret_cast<sockaddr*>(&second), sizeof second, &entries[3]);
    enter(entries[3], reinterpret_cast<sockaddr*>(&first), sizeof first, nullptr);
    *list = entries;
    return 0;
}

INTERPOSED void freeaddrinfo(addrinfo* list) noexcept
{
    if (!fake_addresses) {
        typedef void (*Function)(addrinfo*);
        reinterpret_cast<Function>(dlsym(RTLD_NEXT, "freeaddrinfo"))(list);
        return;
    }
    ++lists_freed;
}

INTERPOSED int getnameinfo(const sockaddr* address, socklen_t address_size, char* host, socklen_t host_size,
                           char* service, socklen_t service_size, int flags)
{
    if (fake_addresses) {
        std::printf("name of family %d, %u bytes, %s, flags %d\n", address->sa_family, host_size,
                    service != nullptr || service_size != 0 ? "a service" : "no service", flags);
    }
    typedef int (*Function)(const sockaddr*, socklen_t, char*, socklen_t, char*, socklen_t, int);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getnameinfo"))(address, address_size, host, host_size,
                                                                       service, service_size, flags);
}

namespace {

/** Prints the result of a call, or the error that it throws and the innermost frame of its trace. */
void print(const std::function<String()>& call)
{
    try {
        std::printf("[%s]\n", call().c_str());
    } catch (const system_error& failure) {
        String frame = failure.empty() ? "no frame" : failure.trace().front();
        frame.erase(frame.find_last_not_of("0123456789") + 1);
        std::printf("%d %s\n%s\n", failure.error(), failure.what(), frame.c_str());
    }
}

void print_host_name()
{
    for (int i = 0; i < 3; ++i) {
        print(System::hostname);
    }
    setenv("PROBE_HOST_NAME", "renamed", 1);
    print(System::hostname);
    std::printf("asked %d times\n", name_calls.load());
}

void print_addresses()
{
    fake_addresses = true;
    for (const String& address : System::hostIpAddress()) {
        std::printf("[%s]\n", address.c_str());
    }
    System::hostIpAddress(AF_INET6);
    std::printf("freed %d times\n", lists_freed);
}

void print_clock()
{
    std::printf("%ld\n%ld\n%ld\n%ld\n", static_cast<long>(System::timeMicros()),
                static_cast<long>(System::timeMillis()), static_cast<long>(System::time()),
                static_cast<long>(System::dceTime()));
}

void print_zone()
{
    // Only the loading of the library can have initialised the time zone before.
    std::printf("%s %ld\n", tzname[0], timezone);
    tm parts = {};
    System::localtime(parts, 0);
    std::printf("%d %02d:%02d\n", parts.tm_mday, parts.tm_hour, parts.tm_min);
    System::utctime(parts, 0);
    std::printf("%d %02d:%02d\n", parts.tm_mday, parts.tm_hour, parts.tm_min);
}

void print_numbers()
{
    std::printf("%u\n", UniqueID::nextUid32());
    std::printf("%u\n", UniqueID::nextUid32());
    setenv("PROBE_CLOCK", "5 0", 1);
    std::printf("%lu\n", static_cast<unsigned long>(UniqueID::nextUid64()));
    std::printf("%lu\n", static_cast<unsigned long>(UniqueID::nextUid64()));
    std::printf("%u\n", UniqueID::nextUid32());
}

/** Makes the first use of everything on many threads at the same time. */
void print_threads()
{
    constexpr std::size_t THREADS = 8;
    std::atomic<std::size_t> ready{0};
    std::vector<String> answers(THREADS);
    std::vector<unsigned int> numbers(THREADS);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (ready.load() != THREADS) {
                std::this_thread::yield();
            }
            numbers[t] = UniqueID::nextUid32();
            answers[t] = System::hostname() + " " + System::getProcessPath(System::EXECUTABLE_NAME_ONLY);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const String& answer : std::set<String>(answers.begin(), answers.end())) {
        std::printf("[%s]\n", answer.c_str());
    }
    const std::set<unsigned int> different(numbers.begin(), numbers.end());
    std::printf("%zu numbers, %u apart\n", different.size(), *different.rbegin() - *different.begin());
    std::printf("asked %d times\nread %d links\n", name_calls.load(), links_read.load());
}

void print_path()
{
    const char* const user = std::getenv("PROBE_USER");
    if (user != nullptr && seteuid(static_cast<uid_t>(std::atoi(user))) != 0) {
        std::printf("no such user\n");
    }
    const StackTrack track("caller()", 0);
    print([] { return System::getProcessPath(System::EXECUTABLE_NAME_ONLY); });
    print([] { return System::getProcessPath(System::DIRECTORY_PATH_ONLY); });
    print([] { return System::getProcessPath(System::FULL_PROCESS_PATH); });
    print([] { return System::getProcessPath(static_cast<System::PROCESS_PATH_OPT>(3)); });
    std::printf("read %d links\n", links_read.load());
    if (user != nullptr && seteuid(0) != 0) {
        std::printf("cannot restore the user\n");
    }
}

}

// Hidden symbols cannot be exported, and one of the two programs made from this source does so.
__attribute__((visibility("default"))) int main(int argc, char** argv)
{
    // A one-time routine that a failure left incomplete would block forever.
    alarm(60);

    const String scenario = argc > 1 ? argv[1] : "";
    if (scenario == "host") {
        print_host_name();
    } else if (scenario == "addresses") {
        print_addresses();
    } else if (scenario == "clock") {
        print_clock();
    } else if (scenario == "sleep") {
        System::sleep(static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10)));
    } else if (scenario == "zone") {
        print_zone();
    } else if (scenario == "numbers") {
        print_numbers();
    } else if (scenario == "threads") {
        print_threads();
    } else if (scenario == "path") {
        print_path();
    } else {
        return 2;
    }
    return 0;
}
