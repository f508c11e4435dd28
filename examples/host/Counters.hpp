#ifndef NIMHOST_COUNTERS_HPP
#define NIMHOST_COUNTERS_HPP

#include <atomic>
#include <chrono>
#include <cstdint>

namespace nimhost {

/** Counters of the host. Any thread may modify them. */
struct Counters
{
    /** Requests that no worker has started, including those that wait because the pool is full. */
    std::atomic<std::int64_t> requestsWaiting{0};
    /** Requests that were read and are not yet answered. */
    std::atomic<std::int64_t> requestsOpen{0};
    std::atomic<std::uint64_t> tasksRun{0};
    /** Requests rejected because the pool was full. */
    std::atomic<std::uint64_t> tasksRejected{0};
    std::atomic<std::uint64_t> tasksFailed{0};
    /** Those of tasksFailed that were requests in documents. */
    std::atomic<std::uint64_t> documentRequestsFailed{0};
    /** Tasks that did not run with the security token of their source. */
    std::atomic<std::uint64_t> tasksWithWrongToken{0};
    /** Requests that were read but not answered before the end of the run. */
    std::atomic<std::uint64_t> requestsDropped{0};
    /** Longest time that a request waited for a worker, in microseconds. */
    std::atomic<std::uint64_t> longestWaitMicros{0};
    std::atomic<std::uint64_t> sourcesFailed{0};

    std::atomic<std::uint64_t> documentsRead{0};
    std::atomic<std::uint64_t> documentsRejected{0};
    /** Documents that were not read before the end of the run. */
    std::atomic<std::uint64_t> documentsDropped{0};
    std::atomic<std::uint64_t> elementsRead{0};
    /** Results that could not be written to standard output. */
    std::atomic<std::uint64_t> resultsNotWritten{0};
    /** Plug-ins reloaded by a request in a document. */
    std::atomic<std::uint64_t> pluginsReloaded{0};
    /** Configurations reloaded on SIGHUP. */
    std::atomic<std::uint64_t> configurationsReloaded{0};
    std::atomic<std::uint64_t> configurationsRejected{0};

    std::atomic<std::uint64_t> recordsWritten{0};
    /** Records whose severity or module is disabled. */
    std::atomic<std::uint64_t> recordsFiltered{0};

    void recordWait(std::chrono::steady_clock::duration wait)
    {
        const auto micros =
            static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(wait).count());
        std::uint64_t longest = longestWaitMicros;
        while (micros > longest && !longestWaitMicros.compare_exchange_weak(longest, micros)) {
        }
    }
};

/** State of the end of the run, read by all threads. */
struct Stop
{
    std::atomic<bool> now{false};
    /** Whether requests that no worker has started are dropped instead of answered. */
    std::atomic<bool> drop{false};
    /** Number of requests that the sources may still read. */
    std::atomic<std::int64_t> requestsLeft{0};
};

}

#endif
