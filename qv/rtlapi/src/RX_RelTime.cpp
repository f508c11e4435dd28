#include <qv/rtlapi/RX_RelTime.hpp>

#include <qv/rtlapi/RX_AbsTime.hpp>

RX_RelTime::RX_RelTime(int seconds, int nanoseconds) : RX_Time(seconds, nanoseconds) {}

RX_AbsTime RX_RelTime::deadline() const
{
    return RX_AbsTime(*this);
}
