#ifndef DALNIM_SYS_STACKTRACK_HPP
#define DALNIM_SYS_STACKTRACK_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <vector>

namespace com::kor::dal::nim::sys {

class StackTrack;

/** The open tracks of one thread, the newest at the back. */
typedef std::vector<const StackTrack*> StackTrackState;

/**
 * One frame of the library's own call stack. A function that can fail puts a track on its machine
 * stack as its first act; a StackTrace shows exactly the functions that did.
 *
 * The texts are not copied and must outlive the track: they are constants. A track belongs to the
 * thread and to the scope that made it.
 */
class DALNIM_API StackTrack
{
public:
    static constexpr const char CLASS_NAME[] = "StackTrack";

    /**
     * @param scope_name  the function, as "add()"
     * @param inner_scope the class, may be null
     * @param outer_scope the namespace, may be null
     * @param line_num    the source line, 0 for none
     */
    StackTrack(const char* scope_name, const char* inner_scope, const char* outer_scope,
               unsigned int line_num);
    /** A track with one scope around the function. */
    StackTrack(const char* scope_name, const char* enclosing_scope, unsigned int line_num);
    /** A track of the bare function. */
    StackTrack(const char* scope_name, unsigned int line_num);
    ~StackTrack();

    StackTrack(const StackTrack&) = delete;
    StackTrack& operator=(const StackTrack&) = delete;

    /** Notes how far the function got, for the traces taken from now on. */
    void currentLine(unsigned int line) noexcept
    {
        cur_line = line;
    }

    /** The text of this frame, as "com.kor.dal.nim.mem.RefCntObject.refBias():209". */
    String label() const;

private:
    const char* out_scope;
    const char* mid_scope;
    const char* scope_name;
    const UInt32_t init_line;
    UInt32_t cur_line;
    /** The stack that this track stands on, so that leaving needs no look-up of the thread. */
    const void* state;
};

}

#endif
