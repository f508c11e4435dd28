#ifndef DALNIM_LOG_SRC_EVIDENCELOG_HPP
#define DALNIM_LOG_SRC_EVIDENCELOG_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/sys/internal/src/EvidenceOutput.hpp>

#include <atomic>
#include <ctime>

namespace com::kor::dal::nim::log {

class LogOutput;
class Write;

/**
 * The log's part in reports of crashes and threads, which signal handlers write: keeps a descriptor of
 * sys::internal::EvidenceOutput on the file of the default logger, and writes the prefix of such a record.
 * Does nothing until such reports are installed.
 */
class EvidenceLog
{
public:
    EvidenceLog() = delete;

    /** Selects the output of the default logger. */
    static void watch(const LogOutput& output) noexcept
    {
        watched.store(&output, std::memory_order_release);
    }
    /** Returns true if reports are written to the file of this output. */
    static bool isWatched(const LogOutput& output) noexcept
    {
        return watched.load(std::memory_order_relaxed) == &output;
    }
    /** Stops watching an output that is being destroyed. */
    static void unwatch(const LogOutput& output) noexcept;

private:
    struct Registration;

    static void appendPrefix(sys::internal::SafeText& text,
                             const sys::internal::EvidenceOutput::Record& record, const std::timespec& when,
                             ThreadID_t tid) noexcept;
    static bool escapes() noexcept;
    static void prepare(const Write& write);
    static void publish();

    /**
     * Only compared, never dereferenced: no order is required. The calls for one output are serialised, like
     * all of its operations.
     */
    static std::atomic<const LogOutput*> watched;
    /**
     * The default logger, which is never destroyed; null until reports are installed. Released by prepare(),
     * acquired by signal handlers.
     */
    static std::atomic<const Write*> logger;
    static const Registration registration;
};

}

#endif
