#ifndef DALNIM_SYS_STACKTRACK_HPP
#define DALNIM_SYS_STACKTRACK_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <atomic>
#include <vector>

namespace com::kor::dal::nim::sys::internal {
class TrackList;
}

namespace com::kor::dal::nim::sys {

class StackTrack;

// A call of a function in another library without the procedure linkage table, whose jump would take a tenth
// of the time of a track.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define DALNIM_CALLED_DIRECTLY __attribute__((noplt))
#else
#define DALNIM_CALLED_DIRECTLY
#endif

/** The stack of tracks of one thread; the innermost is the last element. */
typedef std::vector<const StackTrack*> StackTrackState;

/**
 * One frame of the library's own call stack. A function that can fail constructs a track as its first
 * statement; a StackTrace contains exactly these functions.
 *
 * Lifetime: the strings are not copied and must outlive the track; they are literals. A track must be
 * destroyed on the thread that constructed it, in the reverse order of construction.
 */
class DALNIM_API StackTrack
{
public:
    static constexpr const char CLASS_NAME[] = "StackTrack";

    /**
     * @param scope_name   the name of the function, such as "add()"
     * @param inner_scope  the name of the class, or null
     * @param outer_scope  the name of the namespace, or null
     * @param line_num     the source line; 0 for none
     */
    DALNIM_CALLED_DIRECTLY StackTrack(const char* scope_name, const char* inner_scope,
                                      const char* outer_scope, unsigned int line_num);
    /** As above, with one enclosing scope. */
    StackTrack(const char* scope_name, const char* enclosing_scope, unsigned int line_num);
    /** As above, without an enclosing scope. */
    StackTrack(const char* scope_name, unsigned int line_num);
    // Inline: the call would take as long as everything that it does.
    ~StackTrack()
    {
        // Tracks are nested like their scopes, so this one is the last element.
        static_cast<StackTrackState*>(const_cast<void*>(state))->pop_back();
        // A signal handler that describes this thread must not find this track when its memory is used again.
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }

    StackTrack(const StackTrack&) = delete;
    StackTrack& operator=(const StackTrack&) = delete;

    /** Records the line that the function has reached, for subsequent traces. */
    void currentLine(unsigned int line) noexcept
    {
        cur_line = line;
    }

    /** Returns the label of this frame, such as "com.kor.dal.nim.mem.RefCntObject.refBias():209". */
    String label() const;

private:
    // Reads the fields in a signal handler.
    friend class internal::TrackList;

    const char* out_scope;
    const char* mid_scope;
    const char* scope_name;
    /** The line passed to the constructor, or 0. */
    const UInt32_t init_line;
    /** The line passed to currentLine(), or 0. */
    UInt32_t cur_line;
    /** The StackTrackState that contains this track, so that the destructor need not look up the thread. */
    const void* state;
};

#undef DALNIM_CALLED_DIRECTLY

}

#endif
