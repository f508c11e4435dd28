#include <qv/pmx/host.h>

#include <atomic>
#include <cerrno>

#include <netdb.h>
#include <sys/mman.h>
#include <unistd.h>

#include <qv/pmx/init.h>
#include <qv/pmx/src/cached_pid.hpp>

namespace {

/**
 * Requests that the kernel clears a page in every child process, however the child is created
 * (MADV_WIPEONFORK). Returns false if it refuses. Emulators of Linux accept any request, and ignore it: if a
 * number that no request has is accepted, the page may not be cleared either.
 */
bool isClearedInChildren(void* page, size_t size) noexcept
{
    constexpr int NO_REQUEST = -1;
    return madvise(page, size, NO_REQUEST) != 0 && madvise(page, size, MADV_WIPEONFORK) == 0;
}

/** Maps a page that is cleared in every child process. Returns null on failure. */
std::atomic<pid_t>* mapPidCache() noexcept
{
    const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return nullptr;
    }
    if (!isClearedInChildren(page, size)) {
        munmap(page, size);
        return nullptr;
    }
    return static_cast<std::atomic<pid_t>*>(page);
}

/** Stands for a cache that could not be mapped: the process ID is then not cached. */
std::atomic<pid_t> no_cache{0};

/**
 * The page with the cached process ID; null before its first use. Not a function-local static: a child
 * process could inherit its guard locked, and deadlock.
 */
std::atomic<std::atomic<pid_t>*> pid_cache{nullptr};

__attribute__((noinline, cold)) std::atomic<pid_t>* createPidCache() noexcept
{
    // Like getpid(), the caller does not change `errno`.
    const int error = errno;
    // Children of fork() discard the number themselves. The kernel clears the page for those of other calls.
    std::atomic<pid_t>* const mapped = qv_si_init_only_multithreaded() == 0 ? mapPidCache() : nullptr;
    errno = error;
    std::atomic<pid_t>* const cache = mapped != nullptr ? mapped : &no_cache;
    std::atomic<pid_t>* other = nullptr;
    // Releases the mapped page to the first loads of other threads, and acquires that of another thread.
    if (pid_cache.compare_exchange_strong(other, cache, std::memory_order_acq_rel)) {
        return cache;
    }
    // Another thread has created the cache.
    if (mapped != nullptr) {
        munmap(mapped, static_cast<size_t>(sysconf(_SC_PAGESIZE)));
    }
    return other;
}

}

void qv::forgetPid()
{
    std::atomic<pid_t>* const cache = pid_cache.load(std::memory_order_acquire);
    if (cache != nullptr) {
        // Relaxed: a child has one thread.
        cache->store(0, std::memory_order_relaxed);
    }
}

// Cached, since each log record contains the process ID.
pid_t qv_si_getpid(void) noexcept
{
    std::atomic<pid_t>* cache = pid_cache.load(std::memory_order_acquire);
    if (cache == nullptr) {
        cache = createPidCache();
    }
    if (cache == &no_cache) {
        return getpid();
    }
    // Relaxed: the value is all that is passed on, and threads that store it concurrently store the same one.
    pid_t pid = cache->load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = getpid();
        cache->store(pid, std::memory_order_relaxed);
    }
    return pid;
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

int qv_si_getnameinfo(const struct sockaddr* address, socklen_t address_size, char* host, socklen_t host_size,
                      char* service, socklen_t service_size, int flags)
{
    return getnameinfo(address, address_size, host, host_size, service, service_size, flags);
}

void qv_si_freeaddrinfo(struct addrinfo* list) noexcept
{
    if (list != nullptr) {
        freeaddrinfo(list);
    }
}
