#ifndef QV_RTLAPI_RX_RELTIME_HPP
#define QV_RTLAPI_RX_RELTIME_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Time.hpp>

/** An interval. */
class DALNIM_API RX_RelTime : public RX_Time
{
public:
    /** Both may be of either sign; they are normalised. */
    RX_RelTime(int seconds, int nanoseconds);

    /** Now plus the interval. */
    RX_AbsTime deadline() const override;
};

#endif
