#ifndef DALNIM_LOG_SRC_LINEOUTCOME_HPP
#define DALNIM_LOG_SRC_LINEOUTCOME_HPP

namespace com::kor::dal::nim::log {

/** Where a line was written, and whether it caused a rotation. */
struct LineOutcome
{
    enum class Rotation : unsigned char { NONE, DONE, FAILED };

    /** Whether the output accepted the line; otherwise it was written to standard error. */
    bool isWritten;
    Rotation rotation;
};

}

#endif
