#include <qv/rtlapi/RX_Time.hpp>

#include <limits>

#include <qv/rtlapi/RX_AbsTime.hpp>

namespace {

constexpr si_int64_t NANOSECONDS_A_SECOND = 1000000000;

}

RX_Time::RX_Time(int seconds, int nanoseconds)
    : RX_Time(static_cast<si_int64_t>(seconds), static_cast<si_int64_t>(nanoseconds))
{
}

RX_Time::RX_Time(si_int64_t seconds, si_int64_t nanoseconds) noexcept
{
    set(seconds, nanoseconds);
}

RX_Time::~RX_Time() = default;

void RX_Time::normalize() noexcept
{
    set(_seconds, _nanoseconds);
}

RX_AbsTime RX_Time::deadline() const
{
    return RX_AbsTime(*this);
}

void RX_Time::set(si_int64_t seconds, si_int64_t nanoseconds) noexcept
{
    typedef std::numeric_limits<si_int32_t> Limits;

    si_int64_t carry = nanoseconds / NANOSECONDS_A_SECOND;
    si_int64_t rest = nanoseconds % NANOSECONDS_A_SECOND;
    if (rest < 0) {
        rest += NANOSECONDS_A_SECOND;
        --carry;
    }
    const si_int64_t whole = seconds + carry;
    if (whole > Limits::max()) {
        _seconds = Limits::max();
        _nanoseconds = NANOSECONDS_A_SECOND - 1;
    } else if (whole < Limits::min()) {
        _seconds = Limits::min();
        _nanoseconds = 0;
    } else {
        _seconds = static_cast<si_int32_t>(whole);
        _nanoseconds = static_cast<si_int32_t>(rest);
    }
}
