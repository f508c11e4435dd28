#ifndef QV_RTLAPI_SRC_DEQUEUEDCLOSURE_HPP
#define QV_RTLAPI_SRC_DEQUEUEDCLOSURE_HPP

#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_Closure.hpp>

namespace qv {

/**
 * Owns a closure that a server queue has dequeued, discarded or rejected. The destructor releases the closure
 * before it decrements the recorder, so that RX_ActivityRecorder::waitForQuiet() returns only after every
 * closure has been released.
 */
class DequeuedClosure
{
public:
    /**
     * @param closure   a closure with one reference, which is taken over, or null
     * @param recorder  a recorder that outlives this object, or null
     */
    DequeuedClosure(RX_Closure* closure, RX_ActivityRecorder* recorder) noexcept
        : _recorder(recorder), _closure(closure)
    {
    }
    DequeuedClosure(const DequeuedClosure&) = delete;
    DequeuedClosure& operator=(const DequeuedClosure&) = delete;
    /** May throw, and may end the thread, if the destructor of the closure does. */
    ~DequeuedClosure() noexcept(false)
    {
        if (_closure != nullptr) {
            const Decrement decrement(_recorder);
            _closure->detach();
        }
    }

    /** Returns true if there is a closure. */
    explicit operator bool() const noexcept
    {
        return _closure != nullptr;
    }
    /** Returns the closure, which must exist. */
    RX_Closure& operator*() const noexcept
    {
        return *_closure;
    }

private:
    /** Decrements the recorder, however the release of the closure ends. */
    class Decrement
    {
    public:
        explicit Decrement(RX_ActivityRecorder* recorder) noexcept : _recorder(recorder) {}
        Decrement(const Decrement&) = delete;
        Decrement& operator=(const Decrement&) = delete;
        ~Decrement()
        {
            if (_recorder != nullptr) {
                _recorder->dec();
            }
        }

    private:
        RX_ActivityRecorder* const _recorder;
    };

    RX_ActivityRecorder* const _recorder;
    RX_Closure* const _closure;
};

}

#endif
