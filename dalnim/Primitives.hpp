#ifndef DALNIM_PRIMITIVES_HPP
#define DALNIM_PRIMITIVES_HPP

#include <cstdint>
#include <ctime>

namespace com::kor::dal::nim {

/** @name Integers of a fixed width */
/** @{ */
/** Of as many bits as its name says. */
typedef std::int8_t SInt8_t;
typedef std::uint32_t UInt32_t;
typedef std::uint64_t UInt64_t;
/** @} */

/** An unsigned integer that holds a pointer. */
typedef unsigned long long PointerInt_t;

/** The kernel's number of a process. */
typedef std::int32_t ProcID_t;
/** The kernel's number of a thread, as `ps -L` shows it. */
typedef std::int32_t ThreadID_t;
/** A number shared by tasks, threads and pools, unique within the process. */
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
