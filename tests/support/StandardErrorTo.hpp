#ifndef TESTS_SUPPORT_STANDARDERRORTO_HPP
#define TESTS_SUPPORT_STANDARDERRORTO_HPP

#include <iostream>
#include <streambuf>

namespace support {

/** Redirects std::cerr to another buffer, which the caller owns. Null makes all writes fail. */
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
