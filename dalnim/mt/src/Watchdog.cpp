#include <dalnim/dalbase.hpp>

#include <dalnim/mt/Watchdog.hpp>

#define NIM_LOG_FILE "mt/src/Watchdog"
#include <dalnim/log/LibraryModule.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/mt/src/PoolFigures.hpp>
#include <dalnim/mt/src/PoolQueue.hpp>
#include <dalnim/mt/src/PoolWatch.hpp>
#include <dalnim/mt/src/SafeLog.hpp>
#include <dalnim/mt/src/TrackWatch.hpp>
#include <dalnim/mt/src/WatchFinding.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/ThreadReport.hpp>
#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>
#include <qv/rtlapi/Reference.hpp>

#include <algorithm>
#include <exception>
#include <new>
#include <optional>
#include <utility>
#include <vector>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

constexpr UInt64_t NANOSECONDS_PER_MILLISECOND = 1000000;

UInt64_t nanoseconds(unsigned int milliseconds)
{
    return milliseconds * NANOSECONDS_PER_MILLISECOND;
}

/** Appends the tracks of a thread as a StackTrace writes them, or why there are none. */
void appendTracks(String& text, const sys::ThreadReport& report, ThreadID_t thread)
{
    for (const sys::ThreadReport::Entry& entry : report.threads()) {
        if (entry.tid != thread) {
            continue;
        }
        if (!entry.hasAnswered) {
            text += "\n  " + entry.silence;
        }
        for (std::size_t i = 0; i < entry.tracks.size(); ++i) {
            text += "\n  [" + std::to_string(i) + "]\t" + entry.tracks[i];
        }
    }
}

/** Returns the text of a record. */
String recordOf(const WatchFinding& finding, const std::optional<sys::ThreadReport>& report)
{
    String text = finding.text;
    for (const WatchFinding::Thread& thread : finding.threads) {
        if (!thread.title.empty()) {
            text += "\n  " + thread.title;
        }
        if (report) {
            appendTracks(text, *report, thread.id);
        }
    }
    return text;
}

bool needsTracks(const WatchFindings& findings)
{
    return std::any_of(findings.begin(), findings.end(),
                       [](const WatchFinding& finding) { return !finding.threads.empty(); });
}

}

/** The settings of a watchdog, and what it remembers. */
class Watchdog::State
{
public:
    typedef std::shared_ptr<PoolWatch> Pool;

    explicit State(unsigned int period) : _period(std::max(period, 1U)) {}

    void setLimit(UInt64_t WatchLimits::*limit, unsigned int ms)
    {
        const RX_Locked_ locked(_mutex);
        _limits.*limit = nanoseconds(ms);
    }
    WatchLimits limits() const
    {
        const RX_Locked_ locked(_mutex);
        return _limits;
    }
    void add(PoolQueue& queue, const String& name)
    {
        auto added = std::make_shared<PoolWatch>(qv::share(&queue), name);
        const RX_Locked_ locked(_mutex);
        if (std::none_of(_pools.begin(), _pools.end(),
                         [&](const Pool& pool) { return pool->watches(queue); })) {
            _pools.push_back(std::move(added));
        }
    }
    void remove(const Pool& pool)
    {
        const RX_Locked_ locked(_mutex);
        _pools.erase(std::find(_pools.begin(), _pools.end(), pool));
    }
    std::vector<Pool> pools() const
    {
        const RX_Locked_ locked(_mutex);
        return _pools;
    }

    void stop()
    {
        const RX_Locked_ locked(_mutex);
        _isStopped = true;
        _changed.broadcast();
    }
    /** Returns the end of the period that begins now. */
    RX_AbsTime endOfPeriod() const
    {
        return RX_AbsTime(
            RX_RelTime(static_cast<int>(_period / 1000), static_cast<int>(_period % 1000) * 1000000));
    }
    /** Waits until `deadline`. Returns false if the watchdog has been stopped. */
    bool wait(const RX_AbsTime& deadline) const
    {
        const RX_Locked_ locked(_mutex);
        while (!_isStopped && _changed.timedWait(deadline)) {
        }
        return !_isStopped;
    }
    bool isStopped() const
    {
        const RX_Locked_ locked(_mutex);
        return _isStopped;
    }

    /** The threads that were logged; used by check() alone. */
    TrackWatch tracks;

private:
    const unsigned int _period;
    RX_Mutex _mutex;
    RX_Condition _changed{_mutex};
    WatchLimits _limits DALNIM_GUARDED_BY(_mutex);
    /** The watched pools. Used by check() alone, after it has copied the pointers. */
    std::vector<Pool> _pools DALNIM_GUARDED_BY(_mutex);
    bool _isStopped DALNIM_GUARDED_BY(_mutex) = false;
};

Watchdog::Watchdog(unsigned int period_ms) : _state(new State(period_ms)) {}

Watchdog::~Watchdog() noexcept(false) = default;

void Watchdog::setTaskLimit(unsigned int ms)
{
    _state->setLimit(&WatchLimits::task, ms);
}

void Watchdog::setQueueLimit(unsigned int ms)
{
    _state->setLimit(&WatchLimits::queue, ms);
}

void Watchdog::setTrackLimit(unsigned int ms)
{
    _state->setLimit(&WatchLimits::track, ms);
}

void Watchdog::watch(ThreadPool& pool)
{
    const sys::StackTrack track("watch()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (pool.hasWorkers()) {
        pool.collectStatistics();
        _state->add(pool.poolQueue(), pool.name());
    }
}

void Watchdog::check()
{
    const sys::StackTrack track("check()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const WatchLimits limits = _state->limits();
    const std::vector<State::Pool> pools = _state->pools();
    WatchFindings findings;
    std::optional<sys::ThreadReport> report;
    std::exception_ptr failure;
    // What has been found until memory runs out is logged nevertheless: it is not found again.
    try {
        const UInt64_t now = PoolFigures::now();
        for (const State::Pool& pool : pools) {
            pool->check(limits, now, findings);
        }
        if (sys::ThreadReport::realTimeSignal() != 0 && (limits.track != 0 || needsTracks(findings))) {
            report.emplace();
            _state->tracks.check(*report, limits.track, findings);
        }
    } catch (const std::bad_alloc&) {
        failure = std::current_exception();
    }
    for (const WatchFinding& finding : findings) {
        logSafely(CLASS_NAME, [&] { NIM_LOG(Severity_WARNING) << recordOf(finding, report); });
    }
    for (const State::Pool& pool : pools) {
        if (pool->isOver()) {
            _state->remove(pool);
        }
    }
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
}

void Watchdog::run()
{
    while (!_state->isStopped()) {
        const RX_AbsTime deadline = _state->endOfPeriod();
        try {
            check();
        } catch (const std::bad_alloc&) {
            // The next check finds it.
        }
        if (!_state->wait(deadline)) {
            return;
        }
    }
}

void Watchdog::stop()
{
    _state->stop();
}

}
