#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/TrackList.hpp>

#include <dalnim/sys/internal/src/SafeMemory.hpp>

#include <atomic>
#include <new>

namespace com::kor::dal::nim::sys::internal {

namespace {

/** The memory that handlers read while the calling thread's list grows. */
struct StableTracks
{
    bool isUsed;
    const StackTrack* const* begin;
    const StackTrack* const* end;
};

// Volatile, since signal handlers of the thread read it.
__attribute__((tls_model("initial-exec"))) __thread volatile StableTracks stable_tracks;

/** Appends a string of a track and, unless it is null, a dot. */
void appendScope(SafeText& text, const char* scope) noexcept
{
    constexpr std::size_t MOST = 256;
    char copy[MOST];
    if (scope != nullptr) {
        text << std::string_view(copy, SafeMemory::readText(copy, sizeof copy, scope)) << '.';
    }
}

}

TrackList::TrackList(const StackTrackState& where) noexcept
    : begin(where.data()), end(where.data() + where.size())
{
    if (stable_tracks.isUsed) {
        begin = stable_tracks.begin;
        end = stable_tracks.end;
    }
}

void TrackList::grow(StackTrackState& where)
{
    StackTrackState larger;
    larger.reserve(where.empty() ? 1 : 2 * where.size());
    larger.assign(where.begin(), where.end());
    // The fences order the compiler's stores; the handler runs on this thread.
    stable_tracks.begin = where.data();
    stable_tracks.end = where.data() + where.size();
    stable_tracks.isUsed = true;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    where.swap(larger);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    stable_tracks.isUsed = false;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void TrackList::appendLabel(SafeText& text, const StackTrack* track) noexcept
{
    constexpr std::size_t MOST = 256;
    alignas(StackTrack) char memory[sizeof(StackTrack)];
    if (!SafeMemory::read(memory, track, sizeof memory)) {
        text << "(unreadable)";
        return;
    }
    const StackTrack& copy = *std::launder(reinterpret_cast<const StackTrack*>(memory));
    char scope[MOST];
    appendScope(text, copy.out_scope);
    appendScope(text, copy.mid_scope);
    text << std::string_view(scope, SafeMemory::readText(scope, sizeof scope, copy.scope_name));
    if (copy.init_line != 0) {
        text << ':' << copy.init_line;
    }
    if (copy.cur_line != 0) {
        text << (copy.init_line == 0 ? ":-:" : ":") << copy.cur_line;
    }
}

}
