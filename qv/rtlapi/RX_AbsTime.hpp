#ifndef QV_RTLAPI_RX_ABSTIME_HPP
#define QV_RTLAPI_RX_ABSTIME_HPP

#include <ctime>

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_RelTime.hpp>
#include <qv/rtlapi/RX_Time.hpp>

/**
 * A point in time on CLOCK_MONOTONIC: the deadline of a wait, unaffected by changes of the wall clock. It has
 * no relation to the time of day.
 */
class DALNIM_API RX_AbsTime : public RX_Time
{
public:
    /** The current time plus `interval`. */
    explicit RX_AbsTime(const RX_RelTime& interval);

    RX_AbsTime deadline() const override;

private:
    friend class RX_Time;

    explicit RX_AbsTime(const RX_Time& point);
    RX_AbsTime(const RX_RelTime& interval, const timespec& now);
};

#endif
