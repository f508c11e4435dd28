#ifndef DALNIM_PRIMITIVES_HPP
#define DALNIM_PRIMITIVES_HPP

#include <cstdint>
#include <ctime>

namespace com::kor::dal::nim {

/** @name Fixed-width integers */
/** @{ */
/** An integer with the number of bits in its name. */
typedef std::int8_t SInt8_t;
typedef std::uint32_t UInt32_t;
typedef std::uint64_t UInt64_t;
/** @} */

/** An unsigned integer that can hold a pointer. */
typedef unsigned long long PointerInt_t;

/** A process ID. */
typedef std::int32_t ProcID_t;
/** The kernel's thread ID, as `ps -L` shows it. */
typedef std::int32_t ThreadID_t;
/** The ID of a task, a thread or a pool, unique within the process. */
typedef std::uint32_t TaskID_t;

/** Seconds since the epoch. */
typedef std::time_t Time_t;
/** Milliseconds since the epoch. */
typedef std::int64_t TimeMS_t;
/** Microseconds since the epoch. */
typedef std::int64_t TimeUS_t;
/** Intervals of 100 nanoseconds since 15 October 1582 (RFC 4122, the time of a UUID). */
typedef std::int64_t TimeDCE_t;

}

#endif
