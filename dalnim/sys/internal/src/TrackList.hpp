#ifndef DALNIM_SYS_INTERNAL_SRC_TRACKLIST_HPP
#define DALNIM_SYS_INTERNAL_SRC_TRACKLIST_HPP

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/internal/src/SafeText.hpp>

#include <cstddef>

namespace com::kor::dal::nim::sys::internal {

/**
 * The list of tracks of the calling thread, as a signal handler of this thread finds it. Whichever
 * instruction the signal interrupts, the list contains only tracks that are complete.
 */
class TrackList
{
public:
    /** Captures the list of `where`, which must be that of the calling thread. */
    explicit TrackList(const StackTrackState& where) noexcept;

    /** Returns the number of tracks. */
    std::size_t size() const noexcept
    {
        return static_cast<std::size_t>(end - begin);
    }
    /** Returns a track; 0 is the innermost. */
    const StackTrack* operator[](std::size_t index) const noexcept
    {
        return *(end - 1 - index);
    }

    /**
     * Doubles the capacity of a list of the calling thread that is full. Until the new memory is complete,
     * and while the two are exchanged, handlers find the old memory.
     * @throws std::bad_alloc  if memory runs out; the list is unchanged
     */
    static void grow(StackTrackState& where);

    /** Appends the label of a track, as StackTrack::label() returns it. Any part may be invalid memory. */
    static void appendLabel(SafeText& text, const StackTrack* track) noexcept;

private:
    const StackTrack* const* begin;
    const StackTrack* const* end;
};

}

#endif
