#include <qv/rtlapi/RX_Mutex.hpp>

#include <cerrno>

RX_Mutex::~RX_Mutex() noexcept(false)
{
    RX_Check(qv_si_mutex_destroy(&_mutex));
}

qv_bool_t RX_Mutex::tryLock() const
{
    const qv_err_t status = qv_si_mutex_trylock(&_mutex);
    if (status == EBUSY) {
        return 0;
    }
    RX_Check(status);
    return 1;
}
