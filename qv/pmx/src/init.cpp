#include <qv/pmx/init.h>

#include <pthread.h>

#include <qv/pmx/src/cached_pid.hpp>
#include <qv/pmx/src/thread_self.hpp>

// The note by which the loader recognises a copy of this library (library_copy.hpp): its name, and the major
// version. Each class of the library refers to this source.
asm(".pushsection .note.dalnim, \"a\", %note\n"
    ".balign 4\n"
    ".long 7, 4, 1\n"
    ".asciz \"dalnim\"\n"
    ".balign 4\n"
    ".long 1\n"
    ".popsection\n");

namespace {

pthread_once_t once = PTHREAD_ONCE_INIT;
qv_err_t status = 0;

extern "C" void forgetInChild()
{
    qv::forgetThreadSelf();
    qv::forgetPid();
}

extern "C" void initialize()
{
    status = pthread_atfork(nullptr, nullptr, forgetInChild);
}

}

qv_err_t qv_si_init_only_multithreaded(void) noexcept
{
    pthread_once(&once, initialize);
    return status;
}
