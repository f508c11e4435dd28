#ifndef DALNIM_LOG_SRC_FORKLOCK_HPP
#define DALNIM_LOG_SRC_FORKLOCK_HPP

namespace com::kor::dal::nim::log {

class Write;

/**
 * Holds a logger and its file, and the lock of the records of other loggers, across each fork of the
 * process. The child has the forking thread alone: without this it could inherit a record half written,
 * and locks that nobody will ever give back. With it the child logs as its parent does.
 */
class ForkLock
{
public:
    /** Guards `logger`, which lives as long as the process. To be called once. */
    static void install(Write& logger);

private:
    static void prepare() noexcept;
    static void goOnInParent() noexcept;
    static void goOnInChild() noexcept;

    static Write* guarded;
    // What this fork holds; each itself guarded by that.
    static bool holdsQueue;
    static bool held;
};

}

#endif
