// Errors that check-locks expects the analysis of clang to find, with at least one for each lock.
#include <dalnim/dalbase.hpp>

#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/mt/ReaderWriterLock.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/mt/src/TaskWaitBucket.hpp>
#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>
#include <qv/pmx/TryLock.hpp>
#include <qv/pmx/mutex.h>
#include <qv/pmx/rwlock.h>
#include <qv/pmx/thread_safety.h>
#include <qv/rtlapi/RX_Lockable.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>
#include <qv/rtlapi/RX_NullMutex.hpp>
#include <qv/rtlapi/RX_RWLock.hpp>

using namespace com::kor::dal::nim;

namespace {

/** A variable for each kind of lock, with accesses in the order: correct ones, then errors. */
class SystemMutex
{
public:
    void write()
    {
        if (qv_si_mutex_lock(&mutex) == 0) {
            value = 1;
            qv_si_mutex_unlock(&mutex);
        }
    }
    void writeIfLockFails()
    {
        if (qv_si_mutex_trylock(&mutex) != 0) {
            value = 1; // expected-error {{requires holding mutex 'mutex' exclusively}}
        } else {
            qv_si_mutex_unlock(&mutex);
        }
    }

private:
    si_mutex_t mutex = {};
    int value DALNIM_GUARDED_BY(mutex) = 0;
};

class SystemReaderWriterLock
{
public:
    int read()
    {
        int result = 0;
        if (qv_si_rw_rdlock(&lock) == 0) {
            result = value;
            qv_si_rw_unlock(&lock);
        }
        return result;
    }
    void writeWithSharedAccess()
    {
        if (qv_si_rw_tryrdlock(&lock) == 0) {
            value = 1; // expected-error {{requires holding reader-writer lock 'lock' exclusively}}
            qv_si_rw_unlock(&lock);
        }
    }

private:
    si_rwlock_t lock = qv_si_rwlock_empty_lock_extern;
    int value DALNIM_GUARDED_BY(lock) = 0;
};

class Runtime
{
public:
    void write()
    {
        const RX_Locked_ locked(mutex);
        value = 1;
    }
    void writeThroughPointer()
    {
        const RX_Locked_ locked(&mutex);
        value = 1;
    }
    void writeWithoutLock()
    {
        value = 1; // expected-error {{requires holding mutex 'mutex' exclusively}}
    }
    void writeAfterUnlock()
    {
        mutex.lock();
        mutex.unlock();
        value = 1; // expected-error {{requires holding mutex 'mutex' exclusively}}
    }
    void neverUnlock()
    {
        mutex.lock(); // expected-note {{mutex acquired here}}
    }                 // expected-error {{mutex 'mutex' is still held at the end of function}}
    void lockTwice()
    {
        const RX_Locked_ locked(mutex); // expected-note {{mutex acquired here}}
        mutex.lock();                   // expected-error {{acquiring mutex 'mutex' that is already held}}
    }

private:
    RX_Mutex mutex;
    int value DALNIM_GUARDED_BY(mutex) = 0;
};

class RuntimeReaderWriterLock
{
public:
    void write()
    {
        lock.wrlock();
        value = 1;
        lock.unlock();
    }
    void upgradeAndWrite()
    {
        lock.rdlock();
        lock.upgrade();
        value = 1;
        lock.unlock();
    }
    void writeWithSharedAccess()
    {
        lock.rdlock();
        value = 1; // expected-error {{requires holding reader-writer lock 'lock' exclusively}}
        lock.unlock();
    }

private:
    RX_RWLock lock;
    int value DALNIM_GUARDED_BY(lock) = 0;
};

class Lockable : public RX_Lockable
{
public:
    void write()
    {
        const RX_Locked_ locked(*this);
        value = 1;
    }
    void writeWithoutLock()
    {
        value = 1; // expected-error {{requires holding mutex 'this' exclusively}}
    }

private:
    int value DALNIM_GUARDED_BY(this) = 0;
};

class TryLocked
{
public:
    void write()
    {
        if (lock.tryLock()) {
            value = 1;
            lock.unlock();
        }
    }
    void writeIfHeld()
    {
        if (!lock.tryLock()) {
            value = 1; // expected-error {{requires holding lock 'lock' exclusively}}
            return;
        }
        lock.unlock();
    }

private:
    qv::TryLock lock;
    int value DALNIM_GUARDED_BY(lock) = 0;
};

class Section
{
public:
    void write()
    {
        const mt::MutexHolder<mt::CriticalSection> holder(sync.acquire());
        value = 1;
    }
    void writeWithHolderThatLocksNothing()
    {
        // expected-error@+1 {{calling function 'MutexHolder' requires holding mutex 'sync'}}
        const mt::MutexHolder<mt::CriticalSection> holder(sync);
        value = 1; // expected-error {{requires holding mutex 'sync' exclusively}}
    }
    void writeAfterRelease()
    {
        mt::MutexHolder<mt::CriticalSection> holder(sync.acquire());
        holder.release();
        value = 1; // expected-error {{requires holding mutex 'sync' exclusively}}
    }
    void writeWithEmptyHolder()
    {
        const mt::MutexHolder<mt::CriticalSection> holder;
        value = 1; // expected-error {{requires holding mutex 'sync' exclusively}}
    }
    void writeIfRequestFails()
    {
        if (sync.request()) {
            sync.release();
        } else {
            value = 1; // expected-error {{requires holding mutex 'sync' exclusively}}
        }
    }

private:
    mt::CriticalSection sync;
    int value DALNIM_GUARDED_BY(sync) = 0;
};

class MutexAndCondition
{
public:
    void write()
    {
        const mt::MutexHolder<mt::MutexOps> holder(sync.acquire());
        value = 1;
    }
    void writeWithCondition()
    {
        const mt::MutexHolder<mt::CondSem> holder(condition.acquire());
        other = 1;
    }
    void writeWithoutLock()
    {
        value = 1; // expected-error {{requires holding mutex 'sync' exclusively}}
        other = 1; // expected-error {{requires holding mutex 'condition' exclusively}}
    }

private:
    mt::SysMutex sync;
    mt::CondSem condition{nullptr, true};
    int value DALNIM_GUARDED_BY(sync) = 0;
    int other DALNIM_GUARDED_BY(condition) = 0;
};

class SharedAndExclusive
{
public:
    int read() const
    {
        const mt::MutexHolder<mt::ReaderWriterLock> holder(lock.acquireForRead());
        return value;
    }
    void write()
    {
        const mt::MutexHolder<mt::ReaderWriterLock> holder(lock.acquireForWrite());
        value = 1;
    }
    void upgradeAndWrite()
    {
        const mt::MutexHolder<mt::ReaderWriterLock> holder(lock.acquireForRead());
        lock.upgradeToWrite();
        value = 1;
    }
    void writeWithSharedAccess()
    {
        const mt::MutexHolder<mt::ReaderWriterLock> holder(lock.acquireForRead());
        value = 1; // expected-error {{requires holding reader-writer lock 'lock' exclusively}}
    }

private:
    mt::ReaderWriterLock lock;
    int value DALNIM_GUARDED_BY(lock) = 0;
};

class ForkSafe
{
public:
    void write()
    {
        const sys::internal::ForkSafeLock lock(mutex);
        value = 1;
    }
    void writeWithoutLock()
    {
        value = 1; // expected-error {{requires holding mutex 'mutex' exclusively}}
    }

private:
    sys::internal::ForkSafeMutex mutex{false};
    int value DALNIM_GUARDED_BY(mutex) = 0;
};

int oneTime DALNIM_GUARDED_BY(sys::internal::initMutex) = 0;

[[maybe_unused]] void writeOnce()
{
    sys::InitLock lock(true);
    oneTime = 1;
    lock.release();
    oneTime = 2; // expected-error {{requires holding mutex 'initMutex' exclusively}}
}

class WaitBucket
{
public:
    void write()
    {
        const mt::TaskWaitBucket::Lock lock(bucket);
        value = 1;
    }
    void wakeWithLock()
    {
        const mt::TaskWaitBucket::Lock lock(bucket);
        bucket.wakeAll(); // expected-error {{cannot call function 'wakeAll' while mutex 'bucket' is held}}
    }
    void writeWithoutLock()
    {
        value = 1; // expected-error {{requires holding mutex 'bucket' exclusively}}
    }

private:
    mt::TaskWaitBucket bucket;
    int value DALNIM_GUARDED_BY(bucket) = 0;
};

}
