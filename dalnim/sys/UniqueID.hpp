#ifndef DALNIM_SYS_UNIQUEID_HPP
#define DALNIM_SYS_UNIQUEID_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::sys {

/**
 * IDs that are unique within the process.
 *
 * Each of the two series counts up by one from a base that is computed from the clock and the process ID. IDs
 * of two processes may therefore be equal by chance. A series repeats after 2^32 calls. The child of a fork
 * continues the series of its parent.
 *
 * Thread safety: any thread may call any operation. Only the first call acquires a lock.
 */
class DALNIM_API UniqueID
{
public:
    static constexpr const char CLASS_NAME[] = "UniqueID";

    /** @name Types */
    /** @{ */
    /** The types of the library. */
    typedef nim::UInt32_t UInt32_t;
    typedef nim::UInt64_t UInt64_t;
    /** @} */

    /** Returns the next ID of the 32-bit series, which tasks, threads and pools share. */
    static UInt32_t nextUid32() noexcept;

    /** Returns the next ID of the 64-bit series. */
    static UInt64_t nextUid64() noexcept;

    UniqueID() = delete;
};

}

#endif
