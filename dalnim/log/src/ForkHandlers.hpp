#ifndef DALNIM_LOG_SRC_FORKHANDLERS_HPP
#define DALNIM_LOG_SRC_FORKHANDLERS_HPP

#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>

namespace com::kor::dal::nim::log {

/**
 * The lock of one logger or of one log file, which every fork of the process acquires. Entered for as long as
 * the object exists, on any thread.
 */
class ForkEntry
{
public:
    /** In the order in which fork() acquires them. */
    enum class Kind : unsigned char { LOGGER, FILE };

    ForkEntry(Kind kind, const mt::CriticalSection& section) noexcept;
    ~ForkEntry();

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
 * log file and the time zone mutex, in this order, so that the child inherits no half-written record and no
 * lock of a thread that it does not have: it logs as its parent does.
 *
 * A thread that is blocked while it writes, because no process reads its pipe, holds its locks. fork() waits
 * for the locks under which records are written for one second in all, and afterwards for 50 ms each. It
 * continues without those that are still held; the child reinitialises these, too.
 */
class ForkHandlers
{
public:
    ForkHandlers() = delete;

    /** Registers the handlers. To be called once. */
    static void install() noexcept;

private:
    static void prepare() noexcept;
    static void afterForkInParent() noexcept;
    static void afterForkInChild() noexcept;
};

}

#endif
