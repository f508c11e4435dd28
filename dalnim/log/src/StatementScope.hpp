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
    /**
     * Enters the outermost statement of the thread; inner ones change nothing.
     * @param entered  identifies the statement
     * @param frame    a stack address below which all is called from the statement. Not that of an object: a
     *                 sanitizer may keep those elsewhere.
     */
    StatementScope(const void* entered, const void* frame) noexcept : statement(entered)
    {
        if (outermost == nullptr) {
            outermostFrame = frame;
            outermost = entered;
        }
    }
    ~StatementScope()
    {
        if (statement != nullptr) {
            leave(statement);
        }
    }

    StatementScope(const StatementScope&) = delete;
    StatementScope& operator=(const StatementScope&) = delete;

    /** Leaves the statement to a later call of leave(). */
    void keep() noexcept
    {
        statement = nullptr;
    }
    static void leave(const void* statement) noexcept
    {
        if (outermost == statement) {
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
    // Volatile, since signal handlers of the thread read them.
    /** The outermost statement of the thread, or null. */
    static __attribute__((visibility("hidden"),
                          tls_model("initial-exec"))) __thread const void* volatile outermost;
    static __attribute__((visibility("hidden"),
                          tls_model("initial-exec"))) __thread const void* volatile outermostFrame;

    const void* statement;
};

}

#endif
