#include <qv/pmx/cond.h>

#include <cerrno>
#include <ctime>

#include <qv/pmx/src/perturb.hpp>

qv_err_t qv_si_cond_init(si_cond_t* cond, const char* attributes) noexcept
{
    if (attributes != nullptr) {
        return EINVAL;
    }
    pthread_condattr_t attr;
    if (const int status = pthread_condattr_init(&attr)) {
        return status;
    }
    int status = pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    if (status == 0) {
        status = pthread_cond_init(&cond->cond, &attr);
    }
    pthread_condattr_destroy(&attr);
    return status;
}

qv_err_t qv_si_cond_wait(si_cond_t* cond, si_mutex_t* mutex)
{
    qv::perturb();
    return pthread_cond_wait(&cond->cond, &mutex->mutex);
}
