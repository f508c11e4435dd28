#ifndef QV_RTLAPI_RX_TIME_HPP
#define QV_RTLAPI_RX_TIME_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

class RX_AbsTime;

/**
 * A time in seconds and nanoseconds. Nanoseconds are from 0 to 999999999: minus half a second is -1 and
 * 500000000. Values that do not fit become the greatest or the least time.
 *
 * An object of this class itself is a point in time on CLOCK_MONOTONIC, the clock of RX_AbsTime.
 */
class DALNIM_API RX_Time
{
public:
    /** Normalises the arguments, which may be negative. */
    RX_Time(int seconds, int nanoseconds);
    virtual ~RX_Time();

    /** Returns the whole seconds, rounded down. */
    si_int32_t seconds() const noexcept
    {
        return _seconds;
    }
    /** Returns the nanoseconds above seconds(), from 0 to 999999999. */
    si_int32_t nanoseconds() const noexcept
    {
        return _nanoseconds;
    }

    /** Carries whole seconds from the nanosecond part to the seconds. */
    void normalize() noexcept;

    /** Returns the deadline of a wait for this time that starts now. */
    virtual RX_AbsTime deadline() const;

protected:
    /** @name Copying */
    /** @{ */
    /** Copies the time. */
    RX_Time(const RX_Time&) = default;
    RX_Time& operator=(const RX_Time&) = default;
    /** @} */

    /** Normalises the arguments, which may have any value. */
    RX_Time(si_int64_t seconds, si_int64_t nanoseconds) noexcept;

private:
    void set(si_int64_t seconds, si_int64_t nanoseconds) noexcept;

    si_int32_t _seconds;
    si_int32_t _nanoseconds;
};

#endif
