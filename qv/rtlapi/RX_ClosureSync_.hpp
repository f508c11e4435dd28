#ifndef QV_RTLAPI_RX_CLOSURESYNC_PRIVATE_HPP
#define QV_RTLAPI_RX_CLOSURESYNC_PRIVATE_HPP

#include <memory>

#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Time.hpp>

/**
 * The base of the synchronous closures: threads can wait until the call has returned, and receive the
 * exception that left it. A waiting thread must hold a reference of its own.
 *
 * Thread safety: any number of threads may wait.
 */
class DALNIM_API RX_ClosureSync_ : public RX_Closure
{
public:
    ~RX_ClosureSync_() noexcept(false) override;

    /**
     * Makes the call, stores the exception that leaves it, if any, and marks the closure as done in all
     * cases. If the call ends the thread, by pthread_exit or cancellation, waiting threads receive an
     * RX_ExFatal with 125 (`ECANCELED`), unless the call has marked the closure as done itself.
     */
    void apply() override;

    /** Marks the closure as done, and wakes the waiting threads. */
    virtual void markDone();

    /**
     * Stores the current exception as if the call had thrown it, and marks the closure as done. For closures
     * that will never be applied. Must be called from an exception handler.
     */
    void failWithCurrentException();

    /**
     * Blocks until the closure is marked as done, without a time limit.
     *
     * @throws RX_Exception  the exception that left the call, if any
     */
    void waitForCompletion();
    /**
     * Blocks until the closure is marked as done, or until a time-out.
     *
     * @param deadline  a deadline, or a duration if it is an RX_RelTime
     * @throws RX_ExWarning  with 62 (`ETIME`) if the closure is not done by then
     * @throws RX_Exception  the exception that left the call, if any
     */
    virtual void waitForCompletion(const RX_Time& deadline);

protected:
    RX_ClosureSync_();

private:
    virtual void call_() = 0;
    void failWithThreadEnd();
    void throwFailure() const;

    Construction _construction{*this};
    /** The exception that left the call, or null. */
    std::unique_ptr<RX_Exception> _ex;
    /** Signalled when the closure is marked as done. */
    RX_Condition _cond;
    qv_bool_t _done DALNIM_GUARDED_BY(this) = 0;
};

#endif
