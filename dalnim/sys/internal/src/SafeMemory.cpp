#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/SafeMemory.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace com::kor::dal::nim::sys::internal {

namespace {

/** Reads through the file of this process in /proc. Returns the number of bytes, or -1. */
ssize_t readFromProc(void* to, const void* from, std::size_t size) noexcept
{
    const int file = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    if (file == -1) {
        return -1;
    }
    const ssize_t count = ::pread(file, to, size, static_cast<off_t>(reinterpret_cast<std::uintptr_t>(from)));
    ::close(file);
    return count;
}

/** Reads through a pipe, to which invalid memory cannot be written. Returns the number of bytes, or -1. */
ssize_t readThroughPipe(void* to, const void* from, std::size_t size) noexcept
{
    constexpr std::size_t ROOM_IN_PIPE = 4096;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        return -1;
    }
    std::size_t done = 0;
    while (done < size) {
        const std::size_t part = std::min(size - done, ROOM_IN_PIPE);
        const ssize_t written = ::write(ends[1], static_cast<const char*>(from) + done, part);
        if (written <= 0 || ::read(ends[0], static_cast<char*>(to) + done, part) != written) {
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    ::close(ends[0]);
    ::close(ends[1]);
    return static_cast<ssize_t>(done);
}

}

ErrnoKeeper::ErrnoKeeper() noexcept : saved(errno) {}

ErrnoKeeper::~ErrnoKeeper()
{
    errno = saved;
}

bool SafeMemory::read(void* to, const void* from, std::size_t size) noexcept
{
    const ErrnoKeeper keeper;
    iovec local = {to, size};
    // process_vm_readv() does not write to its second list.
    iovec remote = {const_cast<void*>(from), size};
    ssize_t count = ::process_vm_readv(::getpid(), &local, 1, &remote, 1, 0);
    if (count == -1 && (errno == ENOSYS || errno == EPERM)) {
        // A system call filter forbids it, as in some containers, which may also lack /proc.
        count = readFromProc(to, from, size);
        if (count == -1) {
            count = readThroughPipe(to, from, size);
        }
    }
    return count == static_cast<ssize_t>(size);
}

std::size_t SafeMemory::readText(char* to, std::size_t size, const char* from) noexcept
{
    constexpr std::size_t PAGE = 4096;
    constexpr std::size_t MOST_AT_A_TIME = 128;
    std::size_t length = 0;
    while (from != nullptr && length + 1 < size) {
        // Not across pages, of which the second may be invalid although the text ends in the first.
        const std::size_t toPageEnd = PAGE - reinterpret_cast<std::uintptr_t>(from) % PAGE;
        const std::size_t count = std::min({size - 1 - length, toPageEnd, MOST_AT_A_TIME});
        if (!read(to + length, from, count)) {
            break;
        }
        const std::size_t used = ::strnlen(to + length, count);
        for (std::size_t i = length; i < length + used; ++i) {
            const auto byte = static_cast<unsigned char>(to[i]);
            if (byte < ' ' || byte == 0x7f) {
                to[i] = '?';
            }
        }
        length += used;
        if (used < count) {
            break;
        }
        from += count;
    }
    if (size != 0) {
        to[length] = '\0';
    }
    return length;
}

std::size_t SafeMemory::readTypeName(char* to, std::size_t size, const void* object) noexcept
{
    // The layout is that of the C++ ABI: the pointer to the type information precedes the virtual functions,
    // and the name follows the type information's own table. A name that is compared by its address only
    // begins with an asterisk.
    const void* const* table = nullptr;
    const void* const* type = nullptr;
    const char* name = nullptr;
    char first = '\0';
    if (object == nullptr || !readValue(table, object) || table == nullptr || !readValue(type, table - 1)
        || type == nullptr || !readValue(name, type + 1) || name == nullptr || !readValue(first, name)) {
        return readText(to, size, nullptr);
    }
    return readText(to, size, first == '*' ? name + 1 : name);
}

const void* SafeMemory::completeObject(const void* subobject) noexcept
{
    const std::ptrdiff_t* table = nullptr;
    std::ptrdiff_t offset = 0;
    if (subobject == nullptr || !readValue(table, subobject) || table == nullptr
        || !readValue(offset, table - 2)) {
        return nullptr;
    }
    return static_cast<const char*>(subobject) + offset;
}

std::size_t SafeMemory::readFile(char* to, std::size_t size, const char* path) noexcept
{
    const ErrnoKeeper keeper;
    const int file = ::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    std::size_t length = 0;
    if (file != -1) {
        while (length + 1 < size) {
            const ssize_t count = ::read(file, to + length, size - 1 - length);
            if (count > 0) {
                length += static_cast<std::size_t>(count);
            } else if (count == 0 || errno != EINTR) {
                break;
            }
        }
        ::close(file);
    }
    if (size != 0) {
        to[length] = '\0';
    }
    return length;
}

}
