#include <qv/rtlapi/RX_Condition.hpp>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <qv/pmx/src/perturb.hpp>
#include <qv/rtlapi/RX_AbsTime.hpp>

RX_Condition::~RX_Condition() noexcept(false)
{
    RX_Check(pthread_cond_destroy(&_cond.cond));
}

qv_bool_t RX_Condition::timedWait(const RX_Time& time) const
{
    const RX_AbsTime deadline = time.deadline();
    // The system rejects times before the start of the clock; the start itself is in the past as well.
    const timespec limit = {std::max(deadline.seconds(), 0), deadline.nanoseconds()};
    qv::perturb();
    const int status = pthread_cond_timedwait(&_cond.cond, &_mup->mutex, &limit);
    if (status == ETIMEDOUT) {
        return 0;
    }
    RX_Check(status);
    return 1;
}
