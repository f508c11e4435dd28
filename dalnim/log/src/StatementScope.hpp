#ifndef DALNIM_LOG_SRC_STATEMENTSCOPE_HPP
#define DALNIM_LOG_SRC_STATEMENTSCOPE_HPP

namespace com::kor::dal::nim::log {

/**
 * Marks the calling thread as inside a log statement, so that a statement in a signal handler that
 * interrupted it can be rejected. It would wait for a lock that its own thread is about to acquire or
 * release, or for that of the allocator. A statement within the operands of another one is not rejected.
 */
class StatementScope
{
public:
    /**
     * Enters the outermost statement of the thread; inner ones change nothing.
     * @param entered  identifies the statement
     * @param frame    a stack address: frames below it are called from the statement. Not the address of an
     *                 object, which a sanitizer may store elsewhere.
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

    /** Keeps the thread inside the statement until leave() is called. */
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

    /** Returns true if the calling thread is inside a statement, or in a handler that interrupted one. */
    static bool isActive() noexcept
    {
        return outermost != nullptr;
    }
    /** Returns true if it is in such a handler. Requires isActive(). */
    static bool isInterrupted() noexcept;

    /** Loads the unwinder that isInterrupted() uses, since a signal handler must not. */
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
