#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/RecordQueue.hpp>

#include <pthread.h>

namespace com::kor::dal::nim::log {

namespace {

pthread_once_t _queue_once = PTHREAD_ONCE_INIT;
si_mutex_t _queue_sync;

void create_queue_sync()
{
    qv_si_mutex_init(&_queue_sync, nullptr);
}

}

qv_err_t RecordQueue::lock() noexcept
{
    pthread_once(&_queue_once, create_queue_sync);
    return qv_si_mutex_lock(&_queue_sync);
}

qv_err_t RecordQueue::unlock() noexcept
{
    return qv_si_mutex_unlock(&_queue_sync);
}

void RecordQueue::renew() noexcept
{
    create_queue_sync();
}

}
