#include "Next.hpp"

#include <ctime>

#include <pthread.h>

using faults::Call;
using faults::nextError;

// These return their error, and do not change errno.
#define FAULTS_STATUS_CALL(call, function, parameters, arguments, specification)                             \
    FAULTS_INTERPOSED int function parameters specification                                                  \
    {                                                                                                        \
        FAULTS_NEXT(function);                                                                               \
        const int error = nextError(call);                                                                   \
        return error != 0 ? error : next arguments;                                                          \
    }

FAULTS_STATUS_CALL(Call::THREAD_CREATE, pthread_create,
                   (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*),
                    void* argument),
                   (thread, attributes, start, argument), noexcept)
FAULTS_STATUS_CALL(Call::THREAD_ATTR_INIT, pthread_attr_init, (pthread_attr_t * attributes), (attributes),
                   noexcept)
FAULTS_STATUS_CALL(Call::THREAD_ATTR_SETDETACHSTATE, pthread_attr_setdetachstate,
                   (pthread_attr_t * attributes, int state), (attributes, state), noexcept)
FAULTS_STATUS_CALL(Call::KEY_CREATE, pthread_key_create, (pthread_key_t * key, void (*destructor)(void*)),
                   (key, destructor), noexcept)
FAULTS_STATUS_CALL(Call::SETSPECIFIC, pthread_setspecific, (pthread_key_t key, const void* value),
                   (key, value), noexcept)
FAULTS_STATUS_CALL(Call::MUTEXATTR_INIT, pthread_mutexattr_init, (pthread_mutexattr_t * attributes),
                   (attributes), noexcept)
FAULTS_STATUS_CALL(Call::MUTEX_INIT, pthread_mutex_init,
                   (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes), (mutex, attributes),
                   noexcept)
FAULTS_STATUS_CALL(Call::MUTEX_LOCK, pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex), noexcept)
FAULTS_STATUS_CALL(Call::MUTEX_TRYLOCK, pthread_mutex_trylock, (pthread_mutex_t * mutex), (mutex), noexcept)
FAULTS_STATUS_CALL(Call::CONDATTR_INIT, pthread_condattr_init, (pthread_condattr_t * attributes),
                   (attributes), noexcept)
FAULTS_STATUS_CALL(Call::CONDATTR_SETCLOCK, pthread_condattr_setclock,
                   (pthread_condattr_t * attributes, clockid_t clock), (attributes, clock), noexcept)
FAULTS_STATUS_CALL(Call::COND_INIT, pthread_cond_init,
                   (pthread_cond_t * condition, const pthread_condattr_t* attributes),
                   (condition, attributes), noexcept)
FAULTS_STATUS_CALL(Call::COND_WAIT, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
                   (condition, mutex), )
FAULTS_STATUS_CALL(Call::COND_WAIT, pthread_cond_timedwait,
                   (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* until),
                   (condition, mutex, until), )
