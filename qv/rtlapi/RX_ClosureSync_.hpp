#ifndef QV_RTLAPI_RX_CLOSURESYNC_PRIVATE_HPP
#define QV_RTLAPI_RX_CLOSURESYNC_PRIVATE_HPP

#include <memory>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Time.hpp>

/**
 * What the synchronous closures share: a thread can wait for the end of the call, and receives the
 * exception that left it. The one who waits holds a reference of its own.
 *
 * Thread safety: any number of threads may wait.
 */
class DALNIM_API RX_ClosureSync_ : public RX_Closure
{
public:
    ~RX_ClosureSync_() noexcept(false) override;

    /**
     * Makes the call, keeps what it throws, and marks the closure as done in all cases. If the call ends
     * the thread, by pthread_exit or cancellation, waiting threads receive an RX_ExFatal with ECANCELED,
     * unless the call has marked the closure as done itself.
     */
    void apply() override;

    /** Wakes those who wait: the call has ended. */
    virtual void markDone();

    /**
     * In a handler: keeps the current exception as if the call had thrown it, and marks the closure as
     * done. For a closure that will never be applied.
     */
    void failWithCurrentException();

    /** Waits without limit until the call has ended; then raises what left it, if anything did. */
    void waitForCompletion();
    /**
     * The same, at most until `deadline`, or for `deadline` when that is an RX_RelTime. Raises
     * RX_ExWarning with ETIME (62) when the call has not ended by then.
     */
    virtual void waitForCompletion(const RX_Time& deadline);

protected:
    RX_ClosureSync_();

private:
    virtual void call_() = 0;
    void endFromWithin();
    void raise() const;

    Construction _construction{*this};
    std::unique_ptr<RX_Exception> _ex;
    RX_Condition _cond;
    qv_bool_t _done = 0;
};

#endif
