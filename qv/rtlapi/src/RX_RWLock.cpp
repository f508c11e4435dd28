#include <qv/rtlapi/RX_RWLock.hpp>

#include <cerrno>

#include <qv/pmx/src/rwlock.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>

namespace {

qv_bool_t isAcquired(qv_err_t status)
{
    if (status == EBUSY) {
        return 0;
    }
    RX_Check(status);
    return 1;
}

}

RX_RWLock::~RX_RWLock() noexcept(false)
{
    const qv_err_t status = qv_si_rw_destroy(&_lock);
    if (status != 0) {
        qv::abandon(_lock);
        RX_Check(status);
    }
}

qv_bool_t RX_RWLock::tryRdlock() const
{
    return isAcquired(qv_si_rw_tryrdlock(&_lock));
}

qv_bool_t RX_RWLock::tryWrlock() const
{
    return isAcquired(qv_si_rw_trywrlock(&_lock));
}

void RX_RWLock::upgrade() const
{
    const qv_err_t status = qv_si_rw_upgrade(&_lock);
    if (status == EBUSY) {
        throw RX_ExWarning(EBUSY);
    }
    if (status != 0) {
        throw RX_ExFatal(status);
    }
}
