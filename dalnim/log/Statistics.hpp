#ifndef DALNIM_LOG_STATISTICS_HPP
#define DALNIM_LOG_STATISTICS_HPP

#include <dalnim/log/Common.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <cstdint>

namespace com::kor::dal::nim::log {

/**
 * What a logger has done since it was constructed, or since enable() was called if that was later.
 * Control::getStatistics() returns it.
 */
struct Statistics
{
    /**
     * Has all loggers of the process count their records, permanently. To be called at the start of the
     * program: records that are being written at the time of the call may not be counted. Until then, a
     * record costs no instruction for the statistics. Any thread may call it at any time.
     */
    static DALNIM_API void enable() noexcept;
    /** Returns true after enable(). */
    static DALNIM_API bool isEnabled() noexcept;

    /** The records of a severity. Each record that the logger accepts is counted in one of the members,
     * except `bytes`. */
    struct Records
    {
        /** Records written to the output. Reports of the logger itself are counted, stream headers are not.
         */
        std::uint64_t written = 0;
        /** Bytes of these records, including prefixes and newlines. */
        std::uint64_t bytes = 0;
        /** Records written to standard error because the output rejected them or could not be opened. */
        std::uint64_t rescued = 0;
        /** Records that were not written because their statement threw while they were logged. */
        std::uint64_t failed = 0;
        /** Records that a limit of their module held back. */
        std::uint64_t heldBack = 0;
    };

    /** By severity; records with a value that is not a severity are counted under NONE. */
    Records records[Severity_COUNT];
    /** Rotations of the log file that this logger caused. */
    std::uint64_t rotations = 0;
    /** Rotations that failed, so that the log continued on standard error. */
    std::uint64_t failedRotations = 0;
    /** See Control::getRefusedStatements(). Counted also without enable(). */
    std::uint64_t refusedStatements = 0;

    /** Returns the sums over all severities. */
    Records total() const noexcept
    {
        Records sum;
        for (const Records& each : records) {
            sum.written += each.written;
            sum.bytes += each.bytes;
            sum.rescued += each.rescued;
            sum.failed += each.failed;
            sum.heldBack += each.heldBack;
        }
        return sum;
    }
};

}

#endif
