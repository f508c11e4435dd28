#ifndef TESTS_LOG_WRITESPY_HPP
#define TESTS_LOG_WRITESPY_HPP

#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

namespace logfiletest {

/**
 * Sees every system call of this process that writes to one existing file, for as long as it lives,
 * and can stand for a disk that is full. One at a time, on one thread.
 */
class WriteSpy
{
public:
    explicit WriteSpy(const std::string& path);
    WriteSpy(const WriteSpy&) = delete;
    WriteSpy& operator=(const WriteSpy&) = delete;
    ~WriteSpy();

    /** Lets the file take so many bytes more; what is beyond them ends as on a full disk. */
    void setRoom(std::size_t bytes)
    {
        room = bytes;
    }

    /** Lets no call write more than so many bytes. */
    void setPiece(std::size_t bytes)
    {
        piece = bytes;
    }

    /** How many bytes each call asked to be written, since the last question. */
    std::vector<std::size_t> takeCalls();

    /** For the interposed calls: whether they write to the file. */
    bool watches(int descriptor) const;
    /** For the interposed calls: how many of `bytes` may be written. */
    std::size_t admit(std::size_t bytes);

private:
    dev_t device;
    ino_t inode;
    std::size_t room;
    std::size_t piece;
    std::vector<std::size_t> calls;
};

}

#endif
