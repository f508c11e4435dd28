#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/ForkHandlers.hpp>

#include <dalnim/log/src/RecordMutex.hpp>
#include <dalnim/log/src/SpareHeaders.hpp>
#include <dalnim/log/src/StatementClock.hpp>
#include <dalnim/sys/internal/src/TimeZone.hpp>
#include <qv/pmx/thread_safety.h>

#include <ctime>
#include <pthread.h>

namespace com::kor::dal::nim::log {

using sys::internal::ForkSafeLock;
using sys::internal::ForkSafeMutex;
using sys::internal::TimeZone;

namespace {

/**
 * The deadlines by which a fork stops waiting for the locks under which records are written, on the monotonic
 * clock. A lock whose owner is blocked may use up the time for all locks. The others are then still waited
 * for, as long as a record or a rotation takes; otherwise the child would inherit a logger in the middle of a
 * change.
 */
class LockDeadline
{
public:
    LockDeadline() noexcept : ofAll(after(ALL_MS)) {}

    /** Returns the deadline of the lock that is acquired next. */
    std::timespec ofNextLock() const noexcept
    {
        const std::timespec ofOne = after(EACH_MS);
        const bool isPast =
            ofOne.tv_sec != ofAll.tv_sec ? ofOne.tv_sec > ofAll.tv_sec : ofOne.tv_nsec > ofAll.tv_nsec;
        return isPast ? ofOne : ofAll;
    }

private:
    static constexpr long ALL_MS = 1000;
    static constexpr long EACH_MS = 50;

    /** Returns the time that is `milliseconds` from now. */
    static std::timespec after(long milliseconds) noexcept
    {
        constexpr long NANOS_PER_SECOND = 1000000000;
        std::timespec time = {};
        clock_gettime(CLOCK_MONOTONIC, &time);
        const long nanos = time.tv_nsec + milliseconds * 1000000;
        return {time.tv_sec + nanos / NANOS_PER_SECOND, nanos % NANOS_PER_SECOND};
    }

    const std::timespec ofAll;
};

}

/** All entries of one kind. Constant-initialised, never destroyed. */
class ForkEntry::List
{
public:
    constexpr List() noexcept : mutex(false) {}

    static List& of(Kind kind) noexcept
    {
        // A logger that replaces its file acquires the mutex of the list of files under its own lock. This
        // mutex therefore comes after the locks of all loggers, and must not be that of the list of loggers.
        static List loggers;
        static List files;
        return kind == Kind::LOGGER ? loggers : files;
    }

    void insert(ForkEntry& entry) noexcept
    {
        const ForkSafeLock lock(mutex);
        entry.next = first;
        if (first != nullptr) {
            first->previous = &entry;
        }
        first = &entry;
    }
    void erase(const ForkEntry& entry) noexcept
    {
        const ForkSafeLock lock(mutex);
        (entry.previous != nullptr ? entry.previous->next : first) = entry.next;
        if (entry.next != nullptr) {
            entry.next->previous = entry.previous;
        }
    }

    // The mutex is acquired by the first of these, before the fork, and released by the other two, after it.
    DALNIM_NO_LOCK_ANALYSIS void prepare(const LockDeadline& deadline) noexcept
    {
        mutex.prepare();
        for (ForkEntry* entry = first; entry != nullptr; entry = entry->next) {
            const std::timespec limit = deadline.ofNextLock();
            entry->hold.prepare(ForkSafeMutex::of(entry->section), &limit);
        }
    }
    DALNIM_NO_LOCK_ANALYSIS void afterForkInParent() noexcept
    {
        for (ForkEntry* entry = first; entry != nullptr; entry = entry->next) {
            entry->hold.afterForkInParent(ForkSafeMutex::of(entry->section));
        }
        mutex.afterForkInParent();
    }
    DALNIM_NO_LOCK_ANALYSIS void afterForkInChild() noexcept
    {
        for (ForkEntry* entry = first; entry != nullptr; entry = entry->next) {
            entry->hold.afterForkInChild(ForkSafeMutex::of(entry->section), false);
        }
        mutex.afterForkInChild();
    }

private:
    ForkSafeMutex mutex;
    ForkEntry* first DALNIM_GUARDED_BY(mutex) DALNIM_PT_GUARDED_BY(mutex) = nullptr;
};

ForkEntry::ForkEntry(Kind kind, const mt::CriticalSection& locked) noexcept
    : list(List::of(kind)), section(locked), previous(nullptr), next(nullptr)
{
    list.insert(*this);
}

ForkEntry::~ForkEntry()
{
    list.erase(*this);
}

namespace {

/** Serialises forks. Guards the holds of locks that a fork could not acquire in time. */
ForkSafeMutex fork_mutex(false);

}

void ForkHandlers::install() noexcept
{
    pthread_atfork(prepare, afterForkInParent, afterForkInChild);
}

void ForkHandlers::prepare() noexcept
{
    fork_mutex.prepare();
    SpareHeaders::prepare();
    const LockDeadline deadline;
    const std::timespec limit = deadline.ofNextLock();
    RecordMutex::mutex.prepare(&limit);
    ForkEntry::List::of(ForkEntry::Kind::LOGGER).prepare(deadline);
    ForkEntry::List::of(ForkEntry::Kind::FILE).prepare(deadline);
    // Without a deadline, like the mutexes of the lists: no thread blocks while it holds one of these.
    // Without this one, the child could inherit the time zone lock of the C library locked.
    TimeZone::mutex.prepare();
    StatementClock::mutex.prepare();
}

void ForkHandlers::afterForkInParent() noexcept
{
    StatementClock::mutex.afterForkInParent();
    TimeZone::mutex.afterForkInParent();
    ForkEntry::List::of(ForkEntry::Kind::FILE).afterForkInParent();
    ForkEntry::List::of(ForkEntry::Kind::LOGGER).afterForkInParent();
    RecordMutex::mutex.afterForkInParent();
    fork_mutex.afterForkInParent();
}

void ForkHandlers::afterForkInChild() noexcept
{
    StatementClock::mutex.afterForkInChild();
    TimeZone::mutex.afterForkInChild();
    ForkEntry::List::of(ForkEntry::Kind::FILE).afterForkInChild();
    ForkEntry::List::of(ForkEntry::Kind::LOGGER).afterForkInChild();
    RecordMutex::mutex.afterForkInChild();
    SpareHeaders::afterForkInChild();
    fork_mutex.afterForkInChild();
}

}
