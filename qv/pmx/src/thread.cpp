#include <qv/pmx/thread.h>

#include <pthread.h>
#include <unistd.h>

#include <qv/pmx/init.h>
#include <qv/pmx/src/thread_self.hpp>

static_assert(sizeof(si_thread_key_t) == sizeof(pthread_key_t), "keys are passed through");

namespace {

/** The thread's ID, or 0 before its first use; the kernel assigns no thread the ID 0. */
__attribute__((tls_model("initial-exec"))) thread_local ThreadID_t cachedThreadId = 0;

__attribute__((noinline, cold)) ThreadID_t lookUpThreadId()
{
    // A cached ID must be invalidated by fork(), so cache it only if the handler is registered.
    if (qv_si_init_only_multithreaded() != 0) {
        return gettid();
    }
    return cachedThreadId = gettid();
}

}

void qv::forgetThreadSelf()
{
    cachedThreadId = 0;
}

ThreadID_t qv_si_thread_self(void) noexcept
{
    const ThreadID_t known = cachedThreadId;
    return known != 0 ? known : lookUpThreadId();
}

qv_err_t qv_si_thread_keycreate(si_thread_key_t* key, void (*destructor)(void*)) noexcept
{
    return pthread_key_create(key, destructor);
}

void* qv_si_thread_getspecific(si_thread_key_t key) noexcept
{
    return pthread_getspecific(key);
}

qv_err_t qv_si_thread_setspecific(si_thread_key_t key, const void* value) noexcept
{
    return pthread_setspecific(key, value);
}
