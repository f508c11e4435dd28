#ifndef DALNIM_LOG_SRC_STATEMENTSCOPE_HPP
#define DALNIM_LOG_SRC_STATEMENTSCOPE_HPP

namespace com::kor::dal::nim::log {

/**
 * Marks the calling thread as inside a log statement, so that a statement in a signal handler that
 * interrupted it can be refused. It would wait for a lock that its own thread is about to acquire or release,
 * or for that of the allocator. A statement within the operands of another one is not refused.
 */
class StatementScope
{
public:
    /** Enters the outermost statement of the thread; inner ones change nothing. */
    explicit StatementScope(const void* statementFrame) noexcept : frame(statementFrame)
    {
        enter(frame);
    }
    ~StatementScope()
    {
        if (frame != nullptr) {
            leave(frame);
        }
    }

    StatementScope(const StatementScope&) = delete;
    StatementScope& operator=(const StatementScope&) = delete;

    /** Leaves the statement to a later call of leave(). */
    void keep() noexcept
    {
        frame = nullptr;
    }
    static void leave(const void* frame) noexcept
    {
        if (outermost == frame) {
            outermost = nullptr;
        }
    }

    /** Whether the calling thread is inside a statement, or in a signal handler that interrupted one. */
    static bool isActive() noexcept
    {
        return outermost != nullptr;
    }
    /** Whether it is in such a handler. Requires isActive(). */
    static bool isInterrupted() noexcept;

    /** Loads all that isInterrupted() needs, since a signal handler must not. */
    static void initialize() noexcept;

private:
    static void enter(const void* frame) noexcept
    {
        if (outermost == nullptr) {
            outermost = frame;
        }
    }
    /**
     * An object in the stack frame of the outermost statement of the thread, or null. Volatile, since signal
     * handlers of the thread read it.
     */
    static __attribute__((visibility("hidden"),
                          tls_model("initial-exec"))) __thread const void* volatile outermost;

    const void* frame;
};

}

#endif
