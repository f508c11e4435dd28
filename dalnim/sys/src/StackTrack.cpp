#include <dalnim/dalbase.hpp>

#include <dalnim/sys/StackTrack.hpp>

#include <dalnim/sys/internal/src/ThreadStateCache.hpp>
#include <dalnim/sys/internal/src/TrackList.hpp>

#include <atomic>

namespace com::kor::dal::nim::sys {

namespace {

/** Pushes the first track of a thread, or one for which the stack must grow. */
[[gnu::noinline, gnu::cold]] const void* push_with_memory(StackTrack* that)
{
    StackTrackState& where = internal::ThreadState::current().where;
    if (where.size() == where.capacity()) {
        internal::TrackList::grow(where);
    }
    where.push_back(that);
    return &where;
}

inline const void* initialize_state(StackTrack* that)
{
    // A signal handler that describes this thread must not find a track without its fields: see TrackList.
    std::atomic_signal_fence(std::memory_order_release);
    internal::ThreadState* const thread = internal::cached_state;
    if (thread == nullptr || thread->where.size() == thread->where.capacity()) {
        return push_with_memory(that);
    }
    thread->where.push_back(that);
    return &thread->where;
}

}

StackTrack::StackTrack(const char* scope, const char* inner_scope, const char* outer_scope,
                       unsigned int line_num)
    : out_scope(outer_scope), mid_scope(inner_scope), scope_name(scope), init_line(line_num), cur_line(0),
      state(initialize_state(this))
{
}

StackTrack::StackTrack(const char* scope, const char* enclosing_scope, unsigned int line_num)
    : StackTrack(scope, nullptr, enclosing_scope, line_num)
{
}

StackTrack::StackTrack(const char* scope, unsigned int line_num)
    : StackTrack(scope, nullptr, nullptr, line_num)
{
}

String StackTrack::label() const
{
    constexpr std::size_t USUAL_LENGTH = 80;
    String text;
    text.reserve(USUAL_LENGTH);
    if (out_scope != nullptr) {
        text.append(out_scope).push_back('.');
    }
    if (mid_scope != nullptr) {
        text.append(mid_scope).push_back('.');
    }
    text.append(scope_name);
    if (init_line != 0) {
        text.append(":").append(std::to_string(init_line));
    }
    if (cur_line != 0) {
        if (init_line == 0) {
            text.append(":-");
        }
        text.append(":").append(std::to_string(cur_line));
    }
    return text;
}

}
