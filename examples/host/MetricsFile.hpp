#ifndef NIMHOST_METRICSFILE_HPP
#define NIMHOST_METRICSFILE_HPP

#include "Counters.hpp"
#include "ReplacedFile.hpp"

#include <dalnim/mt/ThreadPool.hpp>

#include <string>

namespace nimhost {

/**
 * Writes the numbers of the host, its log, its pool and the dynamic loader for the textfile collector of a
 * Prometheus node exporter. Not thread-safe.
 */
class MetricsFile
{
public:
    /**
     * Writes the file for the first time.
     * @param pool  the pool, which must collect statistics
     * @throws std::runtime_error if that fails
     */
    MetricsFile(const std::string& path, const Counters& counters,
                const com::kor::dal::nim::mt::ThreadPool& pool);

    /** Writes the file every two seconds. Only the first of several failed writes is logged. */
    void update(double seconds);
    /**
     * Writes the file.
     * @throws std::runtime_error "cannot write PATH: REASON" if the write fails; the file is unchanged then
     */
    void write() const;

private:
    const Counters& counters;
    const com::kor::dal::nim::mt::ThreadPool& pool;
    const ReplacedFile file;
    double next;
    bool failed = false;
};

}

#endif
