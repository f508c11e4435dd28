#ifndef DALNIM_TOOLS_SUPPORT_DESCRIPTOR_HPP
#define DALNIM_TOOLS_SUPPORT_DESCRIPTOR_HPP

#include <unistd.h>
#include <utility>

namespace nimtools {

/** Owns a file descriptor, or none (-1). Never closes standard input. */
class Descriptor
{
public:
    explicit Descriptor(int descriptor = -1) noexcept : number(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor()
    {
        if (number > STDIN_FILENO) {
            close(number);
        }
    }

    int get() const noexcept
    {
        return number;
    }
    explicit operator bool() const noexcept
    {
        return number != -1;
    }

private:
    int number;
};

}

#endif
