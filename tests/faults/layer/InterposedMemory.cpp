#include "Next.hpp"

#include <cstddef>
#include <cstdlib>
#include <new>

#include <sys/mman.h>

namespace {

using faults::Call;
using faults::Uncounted;

/** Makes the calls of one operator new count as one allocation: it may call another form, and malloc. */
struct SingleAllocation
{
    const Uncounted otherForms{Call::NEW};
    const Uncounted malloc{Call::MALLOC};
};

/** Calls the next operator new, unless this allocation must fail. */
template <class Operator, class... Arguments>
void* allocate(Operator next, Arguments... arguments)
{
    if (faults::nextError(Call::NEW) != 0) {
        throw std::bad_alloc();
    }
    const SingleAllocation single;
    return next(arguments...);
}

template <class Operator, class... Arguments>
void* allocateOrNull(Operator next, Arguments... arguments) noexcept
{
    if (faults::nextError(Call::NEW) != 0) {
        return nullptr;
    }
    const SingleAllocation single;
    return next(arguments...);
}

// Memory of the next operator new is freed by the matching operator delete, which is not replaced.
typedef void* (*Plain)(std::size_t);
typedef void* (*Nothrow)(std::size_t, const std::nothrow_t&);
typedef void* (*Aligned)(std::size_t, std::align_val_t);
typedef void* (*AlignedNothrow)(std::size_t, std::align_val_t, const std::nothrow_t&);

}

#define FAULTS_OPERATOR __attribute__((visibility("default")))

FAULTS_OPERATOR void* operator new(std::size_t size)
{
    static std::atomic<void*> known{nullptr};
    const auto next = reinterpret_cast<Plain>(faults::nextOf(known, "_Znwm"));
    return allocate(next, size);
}

FAULTS_OPERATOR void* operator new[](std::size_t size)
{
    static std::atomic<void*> known{nullptr};
    const auto next = reinterpret_cast<Plain>(faults::nextOf(known, "_Znam"));
    return allocate(next, size);
}

FAULTS_OPERATOR void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept
{
    static std::atomic<void*> known{nullptr};
    const auto next = reinterpret_cast<Nothrow>(faults::nextOf(known, "_ZnwmRKSt9nothrow_t"));
    return allocateOrNull<Nothrow, std::size_t, const std::nothrow_t&>(next, size, tag);
}

FAULTS_OPERATOR void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    static std::atomic<void*> known{nullptr};
    const auto next = reinterpret_cast<Nothrow>(faults::nextOf(known, "_ZnamRKSt9nothrow_t"));
    return allocateOrNull<Nothrow, std::size_t, const std::nothrow_t&>(next, size, tag);
}

FAULTS_OPERATOR void* operator new(std::size_t size, std::align_val_t alignment)
{
    static std::atomic<void*> known{nullptr};
    const auto next = reinterpret_cast<Aligned>(faults::nextOf(known, "_ZnwmSt11align_val_t"));
    return allocate(next, size, alignment);
}

FAULTS_OPERATOR void* operator new[](std::size_t size, std::align_val_t alignment)
{
    static std::atomic<void*> known{nullptr};
    const auto next = reinterpret_cast<Aligned>(faults::nextOf(known, "_ZnamSt11align_val_t"));
    return allocate(next, size, alignment);
}

FAULTS_OPERATOR void* operator new(std::size_t size, std::align_val_t alignment,
                                   const std::nothrow_t& tag) noexcept
{
    static std::atomic<void*> known{nullptr};
    const auto next =
        reinterpret_cast<AlignedNothrow>(faults::nextOf(known, "_ZnwmSt11align_val_tRKSt9nothrow_t"));
    return allocateOrNull<AlignedNothrow, std::size_t, std::align_val_t, const std::nothrow_t&>(
        next, size, alignment, tag);
}

FAULTS_OPERATOR void* operator new[](std::size_t size, std::align_val_t alignment,
                                     const std::nothrow_t& tag) noexcept
{
    static std::atomic<void*> known{nullptr};
    const auto next =
        reinterpret_cast<AlignedNothrow>(faults::nextOf(known, "_ZnamSt11align_val_tRKSt9nothrow_t"));
    return allocateOrNull<AlignedNothrow, std::size_t, std::align_val_t, const std::nothrow_t&>(
        next, size, alignment, tag);
}

#if !defined DALNIM_FAULTS_SANITIZED

// The sanitizers have their own malloc, which they need from the start of the process.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

FAULTS_INTERPOSED void* malloc(std::size_t size) noexcept
{
    return faults::fails(Call::MALLOC) ? nullptr : __libc_malloc(size);
}

FAULTS_INTERPOSED void* calloc(std::size_t count, std::size_t size) noexcept
{
    return faults::fails(Call::MALLOC) ? nullptr : __libc_calloc(count, size);
}

FAULTS_INTERPOSED void* realloc(void* memory, std::size_t size) noexcept
{
    return faults::fails(Call::MALLOC) ? nullptr : __libc_realloc(memory, size);
}

FAULTS_INTERPOSED void* mmap(void* address, std::size_t size, int protection, int flags, int file,
                             off_t offset) noexcept
{
    FAULTS_NEXT(mmap);
    return faults::fails(Call::MMAP) ? MAP_FAILED : next(address, size, protection, flags, file, offset);
}

#endif
