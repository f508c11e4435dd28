#include <qv/pmx/mutex.h>

#include <cerrno>
#include <cstring>

#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/probes.hpp>

#ifdef DALNIM_LOCK_PROBES

namespace {

/**
 * Returns true if the mutex seems to be locked. A wrong result only affects the probes. The field is part of
 * the ABI of the C library; its cache line is the one that pthread_mutex_lock() writes next.
 */
inline bool seemsLocked(const pthread_mutex_t& mutex) noexcept
{
    return __builtin_expect(__atomic_load_n(&mutex.__data.__lock, __ATOMIC_RELAXED) != 0, false);
}

/** Locks a mutex that another thread may hold, between two probes if that is so. */
[[gnu::noinline, gnu::cold]] qv_err_t lockContended(pthread_mutex_t& mutex) noexcept
{
    // A recursive mutex may be held by the calling thread, which need not wait.
    qv_err_t status = pthread_mutex_trylock(&mutex);
    if (status != EBUSY) {
        return status;
    }
    QV_PROBE_LOCK_CONTENDED(&mutex);
    status = pthread_mutex_lock(&mutex);
    QV_PROBE_LOCK_ACQUIRED(&mutex, status);
    return status;
}

}

#endif

qv_err_t qv_si_mutex_init(si_mutex_t* mutex, const char* attributes) noexcept
{
    // The static initialisers of the C library: copying one is cheaper than pthread_mutex_init(), and mutexes
    // are created often. Error checking costs one comparison, and turns undefined behaviour into a status.
    static constexpr pthread_mutex_t PLAIN = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    static constexpr pthread_mutex_t RECURSIVE = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

    if (attributes == nullptr || std::strcmp(attributes, "r") == 0) {
        mutex->mutex = PLAIN;
    } else if (std::strcmp(attributes, "R") == 0) {
        mutex->mutex = RECURSIVE;
    } else {
        return EINVAL;
    }
    return 0;
}

qv_err_t qv_si_mutex_destroy(si_mutex_t* mutex) noexcept
{
    return pthread_mutex_destroy(&mutex->mutex);
}

qv_err_t qv_si_mutex_lock(si_mutex_t* mutex) noexcept
{
    qv::perturb();
#ifdef DALNIM_LOCK_PROBES
    if (seemsLocked(mutex->mutex)) {
        return lockContended(mutex->mutex);
    }
#endif
    return pthread_mutex_lock(&mutex->mutex);
}

qv_err_t qv_si_mutex_trylock(si_mutex_t* mutex) noexcept
{
    qv::perturb();
    return pthread_mutex_trylock(&mutex->mutex);
}

// Releases a mutex of the system, which has no annotations.
DALNIM_NO_LOCK_ANALYSIS qv_err_t qv_si_mutex_unlock(si_mutex_t* mutex) noexcept
{
    const qv_err_t status = pthread_mutex_unlock(&mutex->mutex);
    qv::perturb();
    return status;
}
