#include <qv/pmx/host.h>

#include <atomic>
#include <cerrno>

#include <netdb.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/** A page that holds 0 in every new child process, however that is made (madvise(2)); may be null. */
std::atomic<pid_t>* makeProcessPage() noexcept
{
    const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return nullptr;
    }
    if (madvise(page, size, MADV_WIPEONFORK) != 0) {
        munmap(page, size);
        return nullptr;
    }
    return static_cast<std::atomic<pid_t>*>(page);
}

/** In place of a page where the system has none of that kind. */
std::atomic<pid_t> no_page{0};

/** Not left to the guard of a static variable, which the child of a fork could find taken for ever. */
std::atomic<std::atomic<pid_t>*> process_page{nullptr};

__attribute__((noinline, cold)) std::atomic<pid_t>* lookUpProcessPage() noexcept
{
    std::atomic<pid_t>* const made = makeProcessPage();
    std::atomic<pid_t>* const page = made != nullptr ? made : &no_page;
    std::atomic<pid_t>* other = nullptr;
    if (process_page.compare_exchange_strong(other, page, std::memory_order_acq_rel)) {
        return page;
    }
    // Another thread was faster.
    if (made != nullptr) {
        munmap(made, static_cast<size_t>(sysconf(_SC_PAGESIZE)));
    }
    return other;
}

}

// The kernel is asked once a process: each log record carries the number.
pid_t qv_si_getpid(void) noexcept
{
    std::atomic<pid_t>* page = process_page.load(std::memory_order_acquire);
    if (page == nullptr) {
        page = lookUpProcessPage();
    }
    if (page == &no_page) {
        return getpid();
    }
    pid_t pid = page->load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = getpid();
        page->store(pid, std::memory_order_relaxed);
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
