#ifndef QV_RTLAPI_RX_TIME_HPP
#define QV_RTLAPI_RX_TIME_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

class RX_AbsTime;

/**
 * Seconds and nanoseconds, the latter from 0 to 999999999: half a second ago is -1 and 500000000.
 * What does not fit becomes the greatest or the least time there is.
 *
 * As such it is a point in time on CLOCK_MONOTONIC, the clock of RX_AbsTime.
 */
class DALNIM_API RX_Time
{
public:
    /** Both may be of either sign; they are normalised. */
    RX_Time(int seconds, int nanoseconds);
    virtual ~RX_Time();

    /** The whole seconds, rounded down. */
    si_int32_t seconds() const noexcept
    {
        return _seconds;
    }
    /** What is above them, from 0 to 999999999. */
    si_int32_t nanoseconds() const noexcept
    {
        return _nanoseconds;
    }

    /** Carries whole seconds out of the nanosecond part. */
    void normalize() noexcept;

    /** The point in time at which a wait for this time ends that begins now. */
    virtual RX_AbsTime deadline() const;

protected:
    /** @name Copying */
    /** @{ */
    /** The same time. */
    RX_Time(const RX_Time&) = default;
    RX_Time& operator=(const RX_Time&) = default;
    /** @} */

    /** A time from parts of any size. */
    RX_Time(si_int64_t seconds, si_int64_t nanoseconds) noexcept;

private:
    void set(si_int64_t seconds, si_int64_t nanoseconds) noexcept;

    si_int32_t _seconds;
    si_int32_t _nanoseconds;
};

#endif
