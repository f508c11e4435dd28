#ifndef DALNIM_SYS_UNIQUEID_HPP
#define DALNIM_SYS_UNIQUEID_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::sys {

/**
 * Numbers that are unique within the process.
 *
 * Each series counts up by one from a base made of the clock and the process id, so that the
 * numbers of two processes differ by chance alone. A series repeats after 2^32 calls. A child
 * after fork() goes on in the series of its parent.
 *
 * All operations may be called from any thread and take no lock after the first call.
 */
class DALNIM_API UniqueID
{
public:
    static constexpr const char CLASS_NAME[] = "UniqueID";

    /** @name Types */
    /** @{ */
    /** As of the library. */
    typedef nim::UInt32_t UInt32_t;
    typedef nim::UInt64_t UInt64_t;
    /** @} */

    /** The next number of the 32-bit series, which tasks, threads and pools share. */
    static UInt32_t nextUid32() noexcept;

    /** The next number of the 64-bit series. */
    static UInt64_t nextUid64() noexcept;

    UniqueID() = delete;
};

}

#endif
