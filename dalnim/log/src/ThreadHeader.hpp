#ifndef DALNIM_LOG_SRC_THREADHEADER_HPP
#define DALNIM_LOG_SRC_THREADHEADER_HPP

#include <dalnim/log/Common.hpp>

namespace com::kor::dal::nim::log {

class Header;

/**
 * The record that each thread fills again and again. To make a string stream and to take it down costs
 * more than all else of a record but its write; so a statement borrows this one, and gives it back as
 * new.
 */
class ThreadHeader
{
public:
    ThreadHeader() = delete;

    /**
     * The calling thread's record, begun anew. Null while it is lent out, as to the statement around
     * this one, when the thread has ended so far that it is gone, and when the system does not let its
     * end be seen to.
     */
    static Header* lend(Severity severity, const char* file, unsigned int line);

    /** Takes back what the thread has lent; false for any other record, which stays the caller's. */
    static bool takeBack(Header& header) noexcept;
};

}

#endif
