#ifndef QV_PMX_SRC_CANCELLATIONOFF_HPP
#define QV_PMX_SRC_CANCELLATIONOFF_HPP

#include <pthread.h>

namespace qv {

/** Disables cancellation of the calling thread for a scope; a request that arrives stays pending. */
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
