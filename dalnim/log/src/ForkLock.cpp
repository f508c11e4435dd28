#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/ForkLock.hpp>

#include <dalnim/log/Write.hpp>
#include <dalnim/log/src/RecordQueue.hpp>

#include <exception>
#include <new>
#include <pthread.h>

namespace com::kor::dal::nim::log {

Write* ForkLock::guarded = nullptr;
bool ForkLock::holdsQueue = false;
bool ForkLock::held = false;

void ForkLock::install(Write& logger)
{
    guarded = &logger;
    pthread_atfork(prepare, goOnInParent, goOnInChild);
}

void ForkLock::prepare() noexcept
{
    if (RecordQueue::lock() == 0) {
        holdsQueue = true;
    }
    try {
        mt::MutexHolder<mt::CriticalSection> logger(guarded->stateSync.acquire());
        guarded->logFile->stateSync.acquire();
        logger.release(false);
        held = true;
    } catch (const std::exception&) {
        // A stream that forks while it takes a record: the locks are this thread's already.
    }
}

void ForkLock::goOnInParent() noexcept
{
    if (held) {
        held = false;
        guarded->logFile->stateSync.release(std::nothrow);
        guarded->stateSync.release(std::nothrow);
    }
    if (holdsQueue) {
        holdsQueue = false;
        RecordQueue::unlock();
    }
}

void ForkLock::goOnInChild() noexcept
{
    if (held) {
        held = false;
        // They belong to the parent's thread, whose number is another one: they cannot be unlocked here.
        ::new (&guarded->logFile->stateSync) mt::CriticalSection(false);
        ::new (&guarded->stateSync) mt::CriticalSection(false);
    }
    if (holdsQueue) {
        holdsQueue = false;
        RecordQueue::renew();
    }
}

}
