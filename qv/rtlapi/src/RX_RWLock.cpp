#include <qv/rtlapi/RX_RWLock.hpp>

#include <cerrno>

#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>

RX_RWLock::~RX_RWLock() noexcept(false)
{
    RX_Check(qv_si_rw_destroy(&_lock));
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
