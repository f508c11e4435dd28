#ifndef DALNIM_SYS_INTERNAL_SRC_SAFEMEMORY_HPP
#define DALNIM_SYS_INTERNAL_SRC_SAFEMEMORY_HPP

#include <cstddef>

namespace com::kor::dal::nim::sys::internal {

/**
 * Reads memory of this process at addresses that may be invalid. The kernel copies the bytes, and fails where
 * the processor would fault: a report on a process whose memory is damaged, or on an object that its owner
 * has just destroyed, does not fault itself. All operations may be called in signal handlers, and leave
 * `errno` unchanged.
 *
 * Uses process_vm_readv(), /proc/self/mem or a pipe, whichever the container permits; without any, nothing
 * can be read.
 */
class SafeMemory
{
public:
    SafeMemory() = delete;

    /** Copies bytes. Returns false if they cannot be read. */
    static bool read(void* to, const void* from, std::size_t size) noexcept;
    template <class T>
    static bool readValue(T& to, const void* from) noexcept
    {
        return read(&to, from, sizeof to);
    }

    /**
     * Copies a string that ends with a NUL, as far as `size` allows, which includes the terminator. Control
     * characters become question marks. Returns its length; the copy is empty if it cannot be read.
     */
    static std::size_t readText(char* to, std::size_t size, const char* from) noexcept;

    /** Copies the name of the dynamic type of a polymorphic object, as std::type_info::name() returns it. */
    static std::size_t readTypeName(char* to, std::size_t size, const void* object) noexcept;

    /** Returns the beginning of the complete object that contains a polymorphic subobject, or null. */
    static const void* completeObject(const void* subobject) noexcept;

    /** Copies the content of a small file, as of /proc, with a terminator. Returns its length; 0 on failure.
     */
    static std::size_t readFile(char* to, std::size_t size, const char* path) noexcept;
};

/** Restores `errno` at the end of a scope. */
class ErrnoKeeper
{
public:
    ErrnoKeeper() noexcept;
    ~ErrnoKeeper();
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    const int saved;
};

}

#endif
