#ifndef DALNIM_LOG_SRC_SOURCEPOSITION_HPP
#define DALNIM_LOG_SRC_SOURCEPOSITION_HPP

#include <string_view>

namespace com::kor::dal::nim::log {

/** The position of a log statement. */
struct SourcePosition
{
    const char* file;
    /** The part of `file` after the last "/", or null if it has not been determined. */
    std::string_view baseName;
    unsigned int line;
};

}

#endif
