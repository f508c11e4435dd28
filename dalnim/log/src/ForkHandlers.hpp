#ifndef DALNIM_LOG_SRC_FORKHANDLERS_HPP
#define DALNIM_LOG_SRC_FORKHANDLERS_HPP

#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>

namespace com::kor::dal::nim::log {

/**
 * Registers the lock of a logger or of a log file with the fork handlers, for the lifetime of the object.
 * Objects may be constructed and destroyed by any thread. The object that contains the lock destroys its
 * entry first.
 */
class ForkEntry
{
public:
    /** In the order in which fork() acquires the locks. */
    enum class Kind : unsigned char { LOGGER, FILE };

    ForkEntry(Kind kind, const mt::CriticalSection& section) noexcept;
    virtual ~ForkEntry();

    ForkEntry(const ForkEntry&) = delete;
    ForkEntry& operator=(const ForkEntry&) = delete;

private:
    friend class ForkHandlers;
    class List;

    List& list;
    const mt::CriticalSection& section;
    sys::internal::ForkSafeMutex::Hold hold;
    ForkEntry* previous;
    ForkEntry* next;
};

/**
 * The fork handlers of the log. fork() acquires the record mutex, the lock of every logger, the lock of every
 * log file and the time zone mutex, in this order. The child therefore inherits no half-written record, and
 * no lock of a thread that does not exist there, and can log as its parent does.
 *
 * A thread that is blocked in a write, to a pipe that no process reads, holds its locks. fork() waits for the
 * locks under which records are written for one second in all, and afterwards for 50 ms each. It continues
 * without those that are still held; the child reinitialises these, too.
 */
class ForkHandlers
{
public:
    ForkHandlers() = delete;

    /** Registers the handlers. Must be called once. */
    static void install() noexcept;

private:
    static void prepare() noexcept;
    static void afterForkInParent() noexcept;
    static void afterForkInChild() noexcept;
};

}

#endif
