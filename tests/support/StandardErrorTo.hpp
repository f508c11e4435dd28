#ifndef TESTS_SUPPORT_STANDARDERRORTO_HPP
#define TESTS_SUPPORT_STANDARDERRORTO_HPP

#include <iostream>
#include <streambuf>

namespace support {

/** While it lives, std::cerr writes to another buffer, which stays the caller's; null refuses all. */
class StandardErrorTo
{
public:
    explicit StandardErrorTo(std::streambuf* buffer) : before(std::cerr.rdbuf(buffer)) {}
    StandardErrorTo(const StandardErrorTo&) = delete;
    StandardErrorTo& operator=(const StandardErrorTo&) = delete;
    ~StandardErrorTo()
    {
        std::cerr.rdbuf(before);
    }

private:
    std::streambuf* const before;
};

}

#endif
