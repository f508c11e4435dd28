#ifndef QV_RTLAPI_RX_RELTIME_HPP
#define QV_RTLAPI_RX_RELTIME_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Time.hpp>

/** An interval. */
class DALNIM_API RX_RelTime : public RX_Time
{
public:
    /** Normalises the arguments, which may be negative. */
    RX_RelTime(int seconds, int nanoseconds);

    /** Returns the current time plus this interval. */
    RX_AbsTime deadline() const override;
};

#endif
