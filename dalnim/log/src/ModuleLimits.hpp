#ifndef DALNIM_LOG_SRC_MODULELIMITS_HPP
#define DALNIM_LOG_SRC_MODULELIMITS_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Control.hpp>

#include <cstdint>
#include <iosfwd>
#include <unordered_map>
#include <vector>

namespace com::kor::dal::nim::log {

/** The beginning or the end of a flood, as a record of the logger. */
struct LimitReport
{
    String module;
    bool isBegin;
    /** The limit that the module exceeds, if `isBegin`. */
    std::uint32_t recordsPerSecond;
    /** The number of records that were held back, unless `isBegin`. */
    std::uint64_t heldBack;

    /** Inserts the text of the record. */
    void write(std::ostream& os) const;
};

/**
 * The limits of a logger's modules: for each limited module a bucket of tokens, of which each record takes
 * one, and which is filled continuously. One thread at a time uses an object.
 */
class ModuleLimits
{
public:
    typedef Control::ModuleLimit Limit;
    typedef std::vector<Limit> Limits;

    /** Time in nanoseconds without a record that was held back, after which a flood is over. */
    static constexpr std::int64_t QUIET_TIME = 10000000000;

    typedef std::vector<LimitReport> Reports;

    /** The state of a module. */
    struct Bucket
    {
        /** Records that may pass at `filled`. */
        double tokens;
        /** Time in nanoseconds. */
        std::int64_t filled;
        /** Time of the last record that was held back. */
        std::int64_t lastHeldBack;
        /** Records held back since the beginning of the flood; 0 outside of a flood. */
        std::uint64_t heldBack;
        /** Whether the beginning of the flood was reported. */
        bool isReported;
    };
    /** By the names of the modules. */
    typedef std::unordered_map<String, Bucket> Buckets;

    const Limits& limits() const noexcept
    {
        return current;
    }
    /**
     * Exchanges the limits, unless they are equal, and the states of the modules.
     * @param fresh  the new limits; receives the old ones
     * @param old    receives the states of the modules under the old limits; must be empty
     */
    void exchange(Limits& fresh, Buckets& old) noexcept;

    /**
     * Counts a record.
     *
     * @param now      the monotonic time in nanoseconds
     * @param reports  receives the reports that must be written before the record, or instead of it
     * @return true if the record passes, false if it is held back
     * @throws std::bad_alloc if memory runs out. The record is not counted, but `reports` may have grown.
     */
    bool admit(const String& module, Severity severity, std::int64_t now, Reports& reports);
    /** Undoes a report of admit() that was not written, so that it is written with a later record. */
    void undo(const LimitReport& report, std::int64_t now) noexcept;

    /** Returns the reports of the floods that end with these states. */
    static Reports ends(const Buckets& buckets);

    /** Throws `std::out_of_range`, "Illegal Module Limit". */
    static void check(const Limits& limits);
    /** Returns the limits as parse() reads them. */
    static String text(const Limits& limits);
    /** Reads a limit of the form "name=records/burst/severity". Returns false if it has not this form. */
    static bool parse(const String& text, Limit& limit);

private:
    const Limit* find(const String& module) const noexcept;
    void reportEnds(std::int64_t now, Reports& reports);

    Limits current;
    Buckets states;
    /** Number of modules in a flood. */
    std::size_t floods = 0;
};

}

#endif
