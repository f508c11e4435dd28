#ifndef QV_RTLAPI_RX_THREAD_HPP
#define QV_RTLAPI_RX_THREAD_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_RefCounted_PRIVATE_.hpp>

class RX_Closure;

/**
 * A detached system thread that runs one closure. A running thread holds a reference to its object, so the
 * caller of start() may `detach` immediately. If an exception leaves the closure, a line that names it is
 * written to standard error, and `std::terminate` is called.
 *
 * Thread safety: only one thread may call start().
 */
class DALNIM_API RX_Thread : public RX_RefCounted_PRIVATE_
{
public:
    /**
     * Creates an object whose thread is not started yet.
     *
     * @param closure  one reference to it, which is transferred to this object; it is released after the
     *                 closure has run, or with this object if the thread was never started
     */
    explicit RX_Thread(const RX_Closure* closure);

    /**
     * Starts the thread.
     *
     * @throws RX_ExFatal  with 22 (`EINVAL`) if the thread was started before or the closure is null; with
     * the error number of the system, such as 11 (`EAGAIN`), if it cannot create a thread. The call may then
     * be repeated
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
