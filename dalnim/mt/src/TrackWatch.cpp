#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TrackWatch.hpp>

#include <qv/pmx/thread.h>

#include <algorithm>

namespace com::kor::dal::nim::mt {

namespace {

typedef sys::ThreadReport::Entry Entry;

constexpr UInt64_t NANOSECONDS_PER_MILLISECOND = 1000000;

String labelOf(ThreadID_t thread, const String& name)
{
    return "Thread " + std::to_string(thread) + " '" + name + "'";
}

bool isInOneTrack(const Entry& entry, UInt64_t limit)
{
    return entry.hasAnswered && !entry.tracks.empty() && entry.tid != qv_si_thread_self()
           && static_cast<UInt64_t>(entry.sameForMs) * NANOSECONDS_PER_MILLISECOND >= limit;
}

}

void TrackWatch::check(const sys::ThreadReport& report, UInt64_t limit, WatchFindings& findings)
{
    checkLogged(report, findings);
    if (limit == 0) {
        return;
    }
    for (const Entry& entry : report.threads()) {
        if (!isInOneTrack(entry, limit)) {
            continue;
        }
        const auto [logged, isNew] =
            _threads.insert({entry.tid, Logged{entry.name, entry.tracks[0], entry.sameForMs}});
        if (!isNew) {
            continue;
        }
        try {
            findings.push_back({labelOf(entry.tid, entry.name) + " has been in one track for "
                                    + std::to_string(entry.sameForMs) + " ms"
                                    + (entry.hasTask ? ", in task '" + entry.taskName + "' ("
                                                           + std::to_string(entry.taskId) + ")"
                                                     : String()),
                                {{entry.tid, String()}}});
        } catch (...) {
            _threads.erase(logged);
            throw;
        }
    }
}

/** Appends the threads that were logged and have left their track, or have ended. */
void TrackWatch::checkLogged(const sys::ThreadReport& report, WatchFindings& findings)
{
    for (auto logged = _threads.begin(); logged != _threads.end();) {
        const auto entry =
            std::find_if(report.threads().begin(), report.threads().end(),
                         [&](const Entry& candidate) { return candidate.tid == logged->first; });
        const bool hasEnded = entry == report.threads().end();
        if (!hasEnded && !entry->hasAnswered) {
            // The thread may still be in its track.
            ++logged;
            continue;
        }
        if (!hasEnded && !entry->tracks.empty() && entry->tracks[0] == logged->second.track
            && entry->sameForMs >= logged->second.sameForMs) {
            logged->second.sameForMs = entry->sameForMs;
            ++logged;
            continue;
        }
        findings.push_back({labelOf(logged->first, logged->second.name)
                                + (hasEnded ? " has ended; it was" : " has left its track; it was in it")
                                + " for at least " + std::to_string(logged->second.sameForMs) + " ms",
                            {}});
        logged = _threads.erase(logged);
    }
}

}
