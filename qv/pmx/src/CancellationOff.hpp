#ifndef QV_PMX_SRC_CANCELLATIONOFF_HPP
#define QV_PMX_SRC_CANCELLATIONOFF_HPP

#include <pthread.h>

namespace qv {

/** Defers the cancellation of the calling thread to the end of a scope. */
class CancellationOff
{
public:
    CancellationOff() noexcept
    {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_previous);
    }
    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;
    ~CancellationOff()
    {
        pthread_setcancelstate(_previous, nullptr);
    }

private:
    int _previous = 0;
};

}

#endif
