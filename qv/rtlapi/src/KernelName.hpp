#ifndef QV_RTLAPI_SRC_KERNELNAME_HPP
#define QV_RTLAPI_SRC_KERNELNAME_HPP

#include <cstddef>

#include <qv/pmx/types.h>

namespace qv {

/**
 * A name under which the kernel shows a thread: in `top -H`, `ps -L`, debuggers and profilers. The kernel
 * stores 15 bytes; a longer name is truncated, in front of the UTF-8 character that would be cut.
 */
class KernelName
{
public:
    /** Creates an empty name, which changes no thread. */
    KernelName() noexcept = default;
    explicit KernelName(const char* name) noexcept;
    /** Returns the name of a thread of this process; empty if it has ended. Not a cancellation point. */
    static KernelName of(ThreadID_t thread) noexcept;

    /** Returns the name, with a terminator. */
    const char* data() const noexcept
    {
        return _name;
    }

    /** Names the calling thread. */
    void applyToCaller() const noexcept;
    /**
     * Names a thread of this process. Does nothing if it has ended, or if the system cannot open the file
     * with its name. Not a cancellation point; `errno` is unchanged.
     */
    void applyTo(ThreadID_t thread) const noexcept;

private:
    static constexpr std::size_t MAX_LENGTH = 15;

    char _name[MAX_LENGTH + 1] = {};
    std::size_t _length = 0;
};

}

#endif
