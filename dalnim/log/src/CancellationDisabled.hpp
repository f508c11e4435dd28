#ifndef DALNIM_LOG_SRC_CANCELLATIONDISABLED_HPP
#define DALNIM_LOG_SRC_CANCELLATIONDISABLED_HPP

#include <pthread.h>

namespace com::kor::dal::nim::log {

/** Defers the cancellation of the calling thread to the end of a scope, so that it cannot cut a record. */
class CancellationDisabled
{
public:
    CancellationDisabled() noexcept
    {
        ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    }
    ~CancellationDisabled()
    {
        ::pthread_setcancelstate(before, nullptr);
    }
    CancellationDisabled(const CancellationDisabled&) = delete;
    CancellationDisabled& operator=(const CancellationDisabled&) = delete;

private:
    int before;
};

}

#endif
