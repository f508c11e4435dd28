#include "Next.hpp"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

using faults::Call;
using faults::Uncounted;

/** One form of the operator may call another one, and malloc: all that is one allocation. */
struct Behind
{
    const Uncounted otherForms{Call::NEW};
    const Uncounted malloc{Call::MALLOC};
};

/** One operator new, if it is not this one's turn to fail. */
template <class Operator, class... Arguments>
void* allocate(Operator next, Arguments... arguments)
{
    if (faults::strike(Call::NEW) != 0) {
        throw std::bad_alloc();
    }
    const Behind behind;
    return next(arguments...);
}

template <class Operator, class... Arguments>
void* allocateOrNull(Operator next, Arguments... arguments) noexcept
{
    if (faults::strike(Call::NEW) != 0) {
        return nullptr;
    }
    const Behind behind;
    return next(arguments...);
}

// What the next operator gives goes to the operator delete of its own.
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

// The sanitizers bring a malloc of their own, which they need from the first instruction on.
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

#endif
