#include <qv/pmx/mutex.h>

#include <cerrno>
#include <cstring>

qv_err_t qv_si_mutex_init(si_mutex_t* mutex, const char* attributes) noexcept
{
    // Error checking costs a comparison and turns undefined behaviour into a status.
    int type = PTHREAD_MUTEX_ERRORCHECK;
    if (attributes != nullptr && std::strcmp(attributes, "R") == 0) {
        type = PTHREAD_MUTEX_RECURSIVE;
    } else if (attributes != nullptr && std::strcmp(attributes, "r") != 0) {
        return EINVAL;
    }

    pthread_mutexattr_t attr;
    if (const int status = pthread_mutexattr_init(&attr)) {
        return status;
    }
    pthread_mutexattr_settype(&attr, type);
    const int status = pthread_mutex_init(&mutex->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    return status;
}

qv_err_t qv_si_mutex_destroy(si_mutex_t* mutex) noexcept
{
    return pthread_mutex_destroy(&mutex->mutex);
}

qv_err_t qv_si_mutex_lock(si_mutex_t* mutex) noexcept
{
    return pthread_mutex_lock(&mutex->mutex);
}

qv_err_t qv_si_mutex_trylock(si_mutex_t* mutex) noexcept
{
    return pthread_mutex_trylock(&mutex->mutex);
}

qv_err_t qv_si_mutex_unlock(si_mutex_t* mutex) noexcept
{
    return pthread_mutex_unlock(&mutex->mutex);
}
