#include "WriteSpy.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace logfiletest {

namespace {

std::atomic<WriteSpy*> active(nullptr);

WriteSpy* spyOf(int descriptor)
{
    WriteSpy* const spy = active;
    return spy != nullptr && spy->watches(descriptor) ? spy : nullptr;
}

ssize_t realWrite(int descriptor, const void* bytes, std::size_t count)
{
    typedef ssize_t (*Write)(int, const void*, std::size_t);
    static const auto next = reinterpret_cast<Write>(::dlsym(RTLD_NEXT, "write"));
    return next(descriptor, bytes, count);
}

ssize_t realWritev(int descriptor, const iovec* pieces, int count)
{
    typedef ssize_t (*Writev)(int, const iovec*, int);
    static const auto next = reinterpret_cast<Writev>(::dlsym(RTLD_NEXT, "writev"));
    return next(descriptor, pieces, count);
}

ssize_t spiedWrite(WriteSpy& spy, int descriptor, const std::string& bytes)
{
    const std::size_t admitted = spy.admit(bytes.size());
    if (admitted == 0 && !bytes.empty()) {
        errno = ENOSPC;
        return -1;
    }
    return realWrite(descriptor, bytes.data(), admitted);
}

}

WriteSpy::WriteSpy(const std::string& path) : room(SIZE_MAX), piece(SIZE_MAX)
{
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        std::abort();
    }
    device = info.st_dev;
    inode = info.st_ino;
    active = this;
}

WriteSpy::~WriteSpy()
{
    active = nullptr;
}

std::vector<std::size_t> WriteSpy::takeCalls()
{
    std::vector<std::size_t> result;
    result.swap(calls);
    return result;
}

bool WriteSpy::watches(int descriptor) const
{
    struct stat info;
    return ::fstat(descriptor, &info) == 0 && info.st_dev == device && info.st_ino == inode;
}

std::size_t WriteSpy::admit(std::size_t bytes)
{
    calls.push_back(bytes);
    const std::size_t admitted = std::min({bytes, room, piece});
    if (room != SIZE_MAX) {
        room -= admitted;
    }
    return admitted;
}

}

// These replace the C library's own for everything that this process loads.

#define INTERPOSED __attribute__((visibility("default")))

extern "C" INTERPOSED ssize_t write(int descriptor, const void* bytes, std::size_t count)
{
    logfiletest::WriteSpy* const spy = logfiletest::spyOf(descriptor);
    if (spy == nullptr) {
        return logfiletest::realWrite(descriptor, bytes, count);
    }
    return logfiletest::spiedWrite(*spy, descriptor, std::string(static_cast<const char*>(bytes), count));
}

extern "C" INTERPOSED ssize_t writev(int descriptor, const iovec* pieces, int count)
{
    logfiletest::WriteSpy* const spy = logfiletest::spyOf(descriptor);
    if (spy == nullptr) {
        return logfiletest::realWritev(descriptor, pieces, count);
    }
    std::string bytes;
    for (int i = 0; i < count; ++i) {
        bytes.append(static_cast<const char*>(pieces[i].iov_base), pieces[i].iov_len);
    }
    return logfiletest::spiedWrite(*spy, descriptor, bytes);
}
