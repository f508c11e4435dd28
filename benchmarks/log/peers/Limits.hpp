#ifndef BENCHMARKS_LOG_PEERS_LIMITS_HPP
#define BENCHMARKS_LOG_PEERS_LIMITS_HPP

#include "Output.hpp"

#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>

#include <fcntl.h>
#include <unistd.h>

/** The bare system call: the lower limit of any logger. The text is the whole line. */
class BareWrite
{
public:
    static constexpr char NAME[] = "write";

    explicit BareWrite(const Output& output)
        : descriptor(open(output.path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600))
    {
    }
    BareWrite(const BareWrite&) = delete;
    BareWrite& operator=(const BareWrite&) = delete;
    ~BareWrite()
    {
        close(descriptor);
    }

    void record(const std::string& line)
    {
        if (write(descriptor, line.data(), line.size()) < 0) {
            std::abort();
        }
    }

private:
    const int descriptor;
};

/** The minimal handwritten logger. The text is the whole line. */
class GuardedStream
{
public:
    static constexpr char NAME[] = "ofstream";

    explicit GuardedStream(const Output& output) : stream(output.path, std::ios_base::app) {}

    void record(const std::string& line)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stream << line << std::flush;
    }

private:
    std::mutex mutex;
    std::ofstream stream;
};

#endif
