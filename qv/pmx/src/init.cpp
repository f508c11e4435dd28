#include <qv/pmx/init.h>

#include <pthread.h>

#include <qv/pmx/src/thread_self.hpp>

namespace {

pthread_once_t once = PTHREAD_ONCE_INIT;
qv_err_t status = 0;

extern "C" void initialize()
{
    status = pthread_atfork(nullptr, nullptr, qv::forgetThreadSelf);
}

}

qv_err_t qv_si_init_only_multithreaded(void) noexcept
{
    pthread_once(&once, initialize);
    return status;
}
