#include <cstddef>

#ifdef _LIBCPP_VERSION

#include <qv/pmx/api.h>

#include <exception>

#include <dlfcn.h>
#include <unwind.h>

/**
 * @file
 * `throw;` in a handler that a forced unwinding has reached: pthread_exit() and cancellation unwind the stack
 * like an exception, and a handler must pass that on. The C++ runtime of libc++ would begin another unwinding
 * there, which finds no handler, and ends the process. This function is called instead of the runtime's, by
 * the library and by programs that are linked with it. It continues the forced unwinding, and leaves all
 * other exceptions to the runtime.
 */

/** Returns the address at which the runtime stores the header of the current exception of this thread. */
extern "C" void** currentHeader() asm("__cxa_get_globals");

extern "C" DALNIM_API void rethrow() asm("__cxa_rethrow");

namespace {

/** Returns the size of the header, which ends with that of the unwinder. The thrown object follows it. */
std::size_t measureHeader()
{
    try {
        throw 0;
    } catch (const int& object) {
        return static_cast<std::size_t>(reinterpret_cast<const char*>(&object)
                                        - static_cast<const char*>(*currentHeader()));
    }
}

typedef void Rethrow();

Rethrow* findOriginal() noexcept
{
    return reinterpret_cast<Rethrow*>(dlsym(RTLD_NEXT, "__cxa_rethrow"));
}

// At load, since neither may be called while a thread unwinds.
const std::size_t header_size = measureHeader();
Rethrow* const original = findOriginal();

}

void rethrow()
{
    void** const header = currentHeader();
    // Without an exception object, it is a foreign exception.
    if (*header != nullptr && header_size != 0 && !std::current_exception()) {
        auto* const unwinding =
            reinterpret_cast<_Unwind_Exception*>(static_cast<char*>(*header) + header_size) - 1;
        // Set by the unwinder if the unwinding is forced.
        if (unwinding->private_1 != 0) {
            *header = nullptr;
            _Unwind_Resume_or_Rethrow(unwinding);
            std::terminate();
        }
    }
    (original != nullptr ? original : findOriginal())();
    std::terminate();
}

#endif
