#ifndef NIMHOST_COUNTERS_HPP
#define NIMHOST_COUNTERS_HPP

#include <atomic>
#include <chrono>
#include <cstdint>

namespace nimhost {

/** What the whole host did; any thread may count. */
struct Counters
{
    /** Requests that no worker has begun: in the pool, or at its door while it is full. */
    std::atomic<std::int64_t> requestsWaiting{0};
    /** Requests that were read and have no answer yet. */
    std::atomic<std::int64_t> requestsOpen{0};
    std::atomic<std::uint64_t> tasksRun{0};
    /** Requests for which the pool had no room. */
    std::atomic<std::uint64_t> tasksRefused{0};
    std::atomic<std::uint64_t> tasksFailed{0};
    /** Tasks that ran under another token than their source's. */
    std::atomic<std::uint64_t> tasksUnderForeignToken{0};
    /** Requests that were read and that the end of the run left without an answer. */
    std::atomic<std::uint64_t> requestsDropped{0};
    /** The longest that a request waited for a worker. */
    std::atomic<std::uint64_t> longestWaitMicros{0};
    std::atomic<std::uint64_t> sourcesBroken{0};

    std::atomic<std::uint64_t> documentsRead{0};
    std::atomic<std::uint64_t> documentsRefused{0};
    /** Documents that the end of the run left unread. */
    std::atomic<std::uint64_t> documentsDropped{0};
    std::atomic<std::uint64_t> elementsRead{0};
    /** Results that standard output did not take. */
    std::atomic<std::uint64_t> resultsLost{0};
    /** By a reload in a document. */
    std::atomic<std::uint64_t> pluginsLoadedAgain{0};
    /** By SIGHUP. */
    std::atomic<std::uint64_t> configurationsRead{0};
    std::atomic<std::uint64_t> configurationsRefused{0};

    std::atomic<std::uint64_t> recordsWritten{0};
    /** By the gate. */
    std::atomic<std::uint64_t> recordsRefused{0};

    void noteWait(std::chrono::steady_clock::duration wait)
    {
        const auto micros =
            static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(wait).count());
        std::uint64_t longest = longestWaitMicros;
        while (micros > longest && !longestWaitMicros.compare_exchange_weak(longest, micros)) {
        }
    }
};

/** The end of the run, seen by all sources. */
struct Stop
{
    std::atomic<bool> now{false};
    /** Requests that no worker has begun are dropped rather than answered. */
    std::atomic<bool> drop{false};
    /** How many requests the sources may still read. */
    std::atomic<std::int64_t> requestsLeft{0};
};

}

#endif
