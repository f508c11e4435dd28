#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/AlternateStack.hpp>

#include <dalnim/sys/internal/src/SafeMemory.hpp>
#include <dalnim/sys/internal/src/ThreadInquiry.hpp>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <sys/mman.h>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>

namespace com::kor::dal::nim::sys::internal {

namespace {

/** A stack with a guard page below it. */
struct StackMemory
{
    /** The guard page, or null. */
    char* memory;
    /** In bytes, with the guard page. */
    std::size_t size;
};

/** The stack that the calling thread owns. */
__attribute__((tls_model("initial-exec"))) __thread StackMemory own_stack;

std::atomic<bool> is_given_to_new_threads;

std::size_t pageSize() noexcept
{
    return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

/**
 * Returns the size of a stack without its guard page. A report uses about 7 KB, of which the kernel's frame
 * is a half; the rest is for the frame of a second signal and for handlers that were installed before.
 */
std::size_t stackSize() noexcept
{
    constexpr std::size_t FOR_REPORT = 32UL * 1024;
    constexpr long USUAL_MINIMUM = 4096;
#ifdef _SC_MINSIGSTKSZ
    const long asked = ::sysconf(_SC_MINSIGSTKSZ);
#else
    const long asked = USUAL_MINIMUM;
#endif
    const auto frame = static_cast<std::size_t>(std::max(asked, USUAL_MINIMUM));
    const std::size_t page = pageSize();
    return (FOR_REPORT + 2 * frame + page - 1) / page * page;
}

/** Returns a field of /proc/self/statm, in bytes, or 0 if it cannot be read. */
std::size_t memoryInUse(unsigned int field) noexcept
{
    constexpr std::size_t FILE_SIZE = 256;
    char statm[FILE_SIZE];
    SafeMemory::readFile(statm, sizeof statm, "/proc/self/statm");
    const char* at = statm;
    for (; field != 0 && *at != '\0'; ++at) {
        field -= *at == ' ' ? 1 : 0;
    }
    std::size_t pages = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        pages = 10 * pages + static_cast<std::size_t>(*at - '0');
    }
    return pages * pageSize();
}

/**
 * Returns true if the limits of the process permit a stack and some memory more. The stack is used only if
 * the thread crashes; it must not take the last memory from a thread that needs it to go on.
 */
bool hasRoomFor(std::size_t size) noexcept
{
    constexpr std::size_t RESERVE = 4UL * 1024 * 1024;
    static constexpr struct
    {
        decltype(RLIMIT_AS) resource;
        unsigned int field;
    } LIMITS[] = {{RLIMIT_AS, 0}, {RLIMIT_DATA, 5}};
    for (const auto& entry : LIMITS) {
        rlimit limit = {};
        if (::getrlimit(entry.resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY
            && memoryInUse(entry.field) + size + RESERVE > limit.rlim_cur) {
            return false;
        }
    }
    return true;
}

/** Returns no memory if the system refuses it, or if little would be left. */
StackMemory allocate() noexcept
{
    const std::size_t page = pageSize();
    const std::size_t size = stackSize() + page;
    if (!hasRoomFor(size)) {
        return {nullptr, 0};
    }
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) {
        return {nullptr, 0};
    }
    ::mprotect(memory, page, PROT_NONE);
    return {static_cast<char*>(memory), size};
}

void free(const StackMemory& stack) noexcept
{
    ::munmap(stack.memory, stack.size);
}

stack_t description(const StackMemory& stack) noexcept
{
    const std::size_t page = pageSize();
    stack_t described = {};
    described.ss_sp = stack.memory + page;
    described.ss_size = stack.size - page;
    return described;
}

bool callerHasStack() noexcept
{
    stack_t current = {};
    return ::sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0;
}

}

void AlternateStack::giveToNewThreads() noexcept
{
    // Ordered before the iteration over the register: a thread is in it, or gets a stack of its own.
    is_given_to_new_threads.store(true, std::memory_order_seq_cst);
}

bool AlternateStack::isGivenToNewThreads() noexcept
{
    return is_given_to_new_threads.load(std::memory_order_seq_cst);
}

bool AlternateStack::giveCaller() noexcept
{
    const ErrnoKeeper keeper;
    if (callerHasStack()) {
        return true;
    }
    const StackMemory stack = allocate();
    if (stack.memory == nullptr) {
        return false;
    }
    const stack_t described = description(stack);
    if (::sigaltstack(&described, nullptr) != 0) {
        free(stack);
        return false;
    }
    own_stack.memory = stack.memory;
    own_stack.size = stack.size;
    return true;
}

bool AlternateStack::give(int tid, unsigned int timeoutMs) noexcept
{
    const StackMemory stack = allocate();
    if (stack.memory == nullptr) {
        return false;
    }
    bool isUsed = false;
    const bool isDone = ThreadInquiry::giveStack(tid, stack.memory, stack.size, timeoutMs, isUsed);
    if (!isUsed) {
        free(stack);
    }
    return isDone;
}

bool AlternateStack::adopt(void* stack, std::size_t size, void* context) noexcept
{
    // The kernel restores the stack that the context contains when the handler returns.
    stack_t& restored = static_cast<ucontext_t*>(context)->uc_stack;
    if ((restored.ss_flags & SS_DISABLE) == 0 || own_stack.memory != nullptr) {
        return false;
    }
    own_stack.memory = static_cast<char*>(stack);
    own_stack.size = size;
    restored = description(own_stack);
    return true;
}

void AlternateStack::release() noexcept
{
    if (own_stack.memory == nullptr) {
        return;
    }
    const StackMemory stack = own_stack;
    stack_t disabled = {};
    disabled.ss_flags = SS_DISABLE;
    // Fails if the thread runs on it, in a handler that ends the thread; then it is not freed.
    if (::sigaltstack(&disabled, nullptr) == 0) {
        own_stack.memory = nullptr;
        free(stack);
    }
}

}
