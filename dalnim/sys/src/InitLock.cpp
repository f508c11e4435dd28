#include <dalnim/dalbase.hpp>

#include <dalnim/sys/InitLock.hpp>

#include <pthread.h>

namespace com::kor::dal::nim::sys {

namespace {

pthread_once_t _init_once = PTHREAD_ONCE_INIT;
si_mutex_t _init_sync;

void create_init_sync()
{
    qv_si_mutex_init(&_init_sync, "R");
}

void free_init_sync_in_child()
{
    // The mutex may know its owner by the number that the thread had in the parent, and refuse.
    if (qv_si_mutex_unlock(&_init_sync) != 0) {
        create_init_sync();
    }
}

/** Sees to it that no forked child starts with the lock held by a thread that it does not have. */
const struct ForkHandlers
{
    ForkHandlers() noexcept
    {
        pthread_once(&_init_once, create_init_sync);
        pthread_atfork([] { qv_si_mutex_lock(&_init_sync); }, [] { qv_si_mutex_unlock(&_init_sync); },
                       free_init_sync_in_child);
    }
} fork_handlers;

}

InitLock::InitLock(bool lock) noexcept : owned(false)
{
    pthread_once(&_init_once, create_init_sync);
    if (lock) {
        acquire();
    }
}

InitLock::~InitLock()
{
    release();
}

void InitLock::acquire() noexcept
{
    if (!owned) {
        qv_si_mutex_lock(&_init_sync);
        owned = true;
    }
}

void InitLock::release() noexcept
{
    if (owned) {
        qv_si_mutex_unlock(&_init_sync);
        owned = false;
    }
}

}
