#ifndef QV_RTLAPI_RX_THREAD_HPP
#define QV_RTLAPI_RX_THREAD_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_RefCounted_PRIVATE_.hpp>

class RX_Closure;

/**
 * A detached system thread that runs one closure. Once started it keeps itself alive for as long as
 * it runs, so that the starter may `detach` at once. An exception that leaves the closure ends the
 * process through `std::terminate`, after a line on the standard error that names it.
 *
 * Thread safety: one thread starts it.
 */
class DALNIM_API RX_Thread : public RX_RefCounted_PRIVATE_
{
public:
    /** Takes over one reference to the closure. */
    explicit RX_Thread(const RX_Closure* closure);

    /**
     * Starts the thread. Raises RX_Exception with the system's number when there is none to be had;
     * it may be tried again then. EINVAL when it was started before.
     */
    void start();

protected:
    ~RX_Thread() noexcept(false) override;

private:
    void run();
    static void* runThread(void* thread);

    RX_Closure* const _closure;
    qv_bool_t _started = 0;
};

#endif
