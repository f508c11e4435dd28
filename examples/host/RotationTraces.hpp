#ifndef NIMHOST_ROTATIONTRACES_HPP
#define NIMHOST_ROTATIONTRACES_HPP

#include <atomic>
#include <cstdint>
#include <mutex>
#include <streambuf>
#include <string>

namespace nimhost {

/**
 * Filters standard error during its lifetime: counts the rotations in the traces of log files, and removes
 * these traces. Everything else is passed on line by line.
 */
class RotationTraces : public std::streambuf
{
public:
    RotationTraces();
    ~RotationTraces() override;

    RotationTraces(const RotationTraces&) = delete;
    RotationTraces& operator=(const RotationTraces&) = delete;

    std::uint64_t rotations() const
    {
        return rotationCount;
    }

protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* text, std::streamsize length) override;
    int sync() override;

private:
    void append(const char* text, std::size_t length);
    void processLine();

    std::streambuf* const standardError;
    std::mutex lock;
    std::string line;
    std::atomic<std::uint64_t> rotationCount{0};
};

}

#endif
