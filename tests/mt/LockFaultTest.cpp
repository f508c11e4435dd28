// Locks and their users with a system interface that fails: this program replaces its mutexes, conditions and
// reader-writer locks.

#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/Queue.hpp>
#include <dalnim/mt/ReaderWriterLock.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <qv/pmx/cond.h>
#include <qv/pmx/errors.h>
#include <qv/pmx/mutex.h>
#include <qv/pmx/rwlock.h>
#include <qv/rtlapi/RX_ExFatal.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <string.h>

namespace {

using com::kor::dal::nim::mt::CondSem;
using com::kor::dal::nim::mt::CriticalSection;
using com::kor::dal::nim::mt::Queue;
using com::kor::dal::nim::mt::QueueElement;
using com::kor::dal::nim::mt::ReaderWriterLock;
using com::kor::dal::nim::mt::SysMutex;
using com::kor::dal::nim::mt::Task;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::sys::internal::ThreadState;
using testing::MatchesRegex;

/** The status that calls of this thread return, and the calls. */
struct Interface
{
    bool standsIn = false;
    qv_err_t status = 0;
    const char* text = nullptr;
    std::vector<std::string> calls;
};
thread_local Interface interface;

/** Records a call. Returns true if this program replaces it. */
bool answers(const std::string& call)
{
    if (interface.standsIn) {
        interface.calls.push_back(call);
    }
    return interface.standsIn;
}

/** Replaces the calls for a scope. They succeed until fail(). */
class StandIn
{
public:
    StandIn()
    {
        ThreadState::current(); // an error must not construct it while the calls are replaced
        interface = Interface();
        interface.standsIn = true;
    }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;
    ~StandIn()
    {
        interface = Interface();
    }

    void fail(qv_err_t status, const char* text = nullptr)
    {
        interface.status = status;
        interface.text = text;
    }
    std::vector<std::string> calls() const
    {
        return interface.calls;
    }
};

}

qv_err_t qv_si_mutex_init(si_mutex_t* mutex, const char* attributes) noexcept
{
    if (answers(std::string("init ") + (attributes != nullptr ? attributes : "null"))) {
        return interface.status;
    }
    pthread_mutexattr_t recursive;
    pthread_mutexattr_init(&recursive);
    pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
    return pthread_mutex_init(&mutex->mutex, &recursive);
}

qv_err_t qv_si_mutex_destroy(si_mutex_t* mutex) noexcept
{
    return answers("destroy") ? interface.status : pthread_mutex_destroy(&mutex->mutex);
}

qv_err_t qv_si_mutex_lock(si_mutex_t* mutex) noexcept
{
    return answers("lock") ? interface.status : pthread_mutex_lock(&mutex->mutex);
}

qv_err_t qv_si_mutex_trylock(si_mutex_t* mutex) noexcept
{
    return answers("trylock") ? interface.status : pthread_mutex_trylock(&mutex->mutex);
}

qv_err_t qv_si_mutex_unlock(si_mutex_t* mutex) noexcept
{
    return answers("unlock") ? interface.status : pthread_mutex_unlock(&mutex->mutex);
}

qv_err_t qv_si_cond_init(si_cond_t* cond, const char*) noexcept
{
    return answers("cond init") ? interface.status : pthread_cond_init(&cond->cond, nullptr);
}

qv_err_t qv_si_rw_init(si_rwlock_t*, const char*) noexcept
{
    answers("rw init");
    return interface.status;
}

qv_err_t qv_si_rw_destroy(si_rwlock_t*) noexcept
{
    answers("rw destroy");
    return interface.status;
}

qv_err_t qv_si_rw_rdlock(si_rwlock_t*) noexcept
{
    answers("rdlock");
    return interface.status;
}

qv_err_t qv_si_rw_wrlock(si_rwlock_t*) noexcept
{
    answers("wrlock");
    return interface.status;
}

qv_err_t qv_si_rw_unlock(si_rwlock_t*) noexcept
{
    answers("rw unlock");
    return interface.status;
}

qv_err_t qv_si_rw_upgrade(si_rwlock_t*) noexcept
{
    answers("upgrade");
    return interface.status;
}

const char* qv_si_strerror(qv_err_t code) noexcept
{
    return interface.text != nullptr ? interface.text : strerrordesc_np(code);
}

namespace {

template <class Call>
system_error errorOf(Call call)
{
    try {
        call();
    } catch (const system_error& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return system_error(0, "nothing was thrown");
}

typedef std::vector<std::string> Calls;

TEST(LockFault, CriticalSectionPassesItsAttribute)
{
    StandIn standIn;
    {
        const CriticalSection byDefault;
        const CriticalSection plain(false);
        const CriticalSection recursive(true);
    }
    EXPECT_EQ((Calls{"init null", "init r", "init R", "destroy", "destroy", "destroy"}), standIn.calls());
}

TEST(LockFault, CriticalSectionMakesOneCallEach)
{
    StandIn standIn;
    const CriticalSection section;
    section.acquire();
    section.release();
    EXPECT_TRUE(section.request());
    EXPECT_TRUE(section.release(std::nothrow));
    EXPECT_EQ((Calls{"init null", "lock", "unlock", "trylock", "unlock"}), standIn.calls());
}

TEST(LockFault, CriticalSectionThrowsIfItCannotBeCreated)
{
    StandIn standIn;
    standIn.fail(EAGAIN);
    const system_error byDefault = errorOf([] { const CriticalSection section; });
    const system_error byChoice = errorOf([] { const CriticalSection section(true); });
    for (const system_error& error : {byDefault, byChoice}) {
        EXPECT_EQ(11, error.error());
        EXPECT_STREQ("Resource temporarily unavailable", error.what());
        ASSERT_EQ(1U, error.trace().size());
        EXPECT_THAT(
            error.trace()[0],
            MatchesRegex("com\\.kor\\.dal\\.nim\\.mt\\.CriticalSection\\.CriticalSection\\(\\):[0-9]+"));
    }
    EXPECT_EQ((Calls{"init null", "init R"}), standIn.calls())
        << "a mutex that was not created is not destroyed";
}

TEST(LockFault, CriticalSectionThrowsEveryStatus)
{
    StandIn standIn;
    const CriticalSection section;
    standIn.fail(EINVAL);
    for (const system_error& error :
         {errorOf([&] { section.acquire(); }), errorOf([&] { section.release(); })}) {
        EXPECT_EQ(22, error.error());
        EXPECT_STREQ("Invalid argument", error.what());
    }
    EXPECT_FALSE(section.request());
    EXPECT_FALSE(section.release(std::nothrow));
    standIn.fail(4000);
    EXPECT_STREQ("Unknown error 4000", errorOf([&] { section.acquire(); }).what());
}

TEST(LockFault, CriticalSectionIgnoresAFailedDestroy)
{
    StandIn standIn;
    {
        const CriticalSection section;
        standIn.fail(EBUSY);
    }
    EXPECT_EQ((Calls{"init null", "destroy"}), standIn.calls());
}

TEST(LockFault, SysMutexMakesOneCallEach)
{
    StandIn standIn;
    {
        const SysMutex mutex;
        mutex.acquire();
        mutex.release();
        EXPECT_TRUE(mutex.request());
        EXPECT_TRUE(mutex.release(std::nothrow));
    }
    EXPECT_EQ((Calls{"init null", "lock", "unlock", "trylock", "unlock", "destroy"}), standIn.calls());
}

TEST(LockFault, SysMutexThrowsIfItCannotBeCreated)
{
    StandIn standIn;
    standIn.fail(ENOMEM);
    const system_error error = errorOf([] { const SysMutex mutex; });
    EXPECT_EQ(12, error.error());
    EXPECT_STREQ("Cannot allocate memory", error.what());
    ASSERT_EQ(1U, error.trace().size());
    EXPECT_THAT(error.trace()[0],
                MatchesRegex("com\\.kor\\.dal\\.nim\\.mt\\.SysMutex\\.SysMutex\\(\\):[0-9]+"));
    EXPECT_EQ(Calls{"init null"}, standIn.calls());
}

TEST(LockFault, SysMutexThrowsEveryStatus)
{
    StandIn standIn;
    const SysMutex mutex;
    standIn.fail(EINVAL);
    for (const system_error& error : {errorOf([&] { mutex.acquire(); }), errorOf([&] { mutex.release(); })}) {
        EXPECT_EQ(22, error.error());
        EXPECT_STREQ("Invalid argument", error.what());
    }
    EXPECT_FALSE(mutex.request());
    EXPECT_FALSE(mutex.release(std::nothrow));
    standIn.fail(EBUSY);
    EXPECT_FALSE(mutex.request());
    standIn.fail(0);
}

TEST(LockFault, SysMutexFoldsTheMessageAt78Columns)
{
    StandIn standIn;
    const SysMutex mutex;
    // 76 bytes: a following word of two letters ends at the last column.
    std::string words;
    for (int i = 0; i < 38; ++i) {
        words += "a ";
    }
    const std::string fits = words + "bb";
    const std::string folds = words + "bbb";
    standIn.fail(EINVAL, fits.c_str());
    EXPECT_EQ(fits, errorOf([&] { mutex.acquire(); }).what());
    standIn.fail(EINVAL, folds.c_str());
    EXPECT_EQ(words.substr(0, 75) + "\nbbb", errorOf([&] { mutex.acquire(); }).what());
    standIn.fail(0);
}

/** Returns the frames of a trace, without their line numbers. */
std::vector<std::string> functionsOf(const system_error& error)
{
    std::vector<std::string> found;
    for (const std::string& frame : error.trace()) {
        found.push_back(frame.substr(0, frame.rfind(':')));
    }
    return found;
}

TEST(LockFault, CondSemThrowsIfItCannotBeCreated)
{
    // The mutex is created first: only the condition must fail.
    const SysMutex mutex;
    StandIn standIn;
    standIn.fail(ENOMEM);
    const system_error borrowing = errorOf([&] { const CondSem sem(mutex); });
    EXPECT_EQ(12, borrowing.error());
    EXPECT_STREQ("Cannot allocate memory", borrowing.what());
    EXPECT_EQ(std::vector<std::string>{"com.kor.dal.nim.mt.CondSem.CondSem()"}, functionsOf(borrowing));
    EXPECT_EQ(Calls{"cond init"}, standIn.calls());
}

TEST(LockFault, CondSemThrowsTheFailuresOfItsLock)
{
    const CondSem sem(nullptr, true);
    StandIn standIn;
    standIn.fail(EINVAL);
    EXPECT_EQ(22, errorOf([&] { sem.acquire(); }).error());
    EXPECT_EQ(22, errorOf([&] { sem.release(); }).error());
    EXPECT_FALSE(sem.request());
    EXPECT_FALSE(sem.release(std::nothrow));
    EXPECT_EQ((Calls{"lock", "unlock", "trylock", "unlock"}), standIn.calls());
}

TEST(LockFault, ReaderWriterLockMakesOneCallEach)
{
    StandIn standIn;
    {
        const ReaderWriterLock lock;
        lock.acquireForRead();
        lock.upgradeToWrite();
        lock.release();
        lock.acquireForWrite();
        EXPECT_TRUE(lock.release(std::nothrow));
    }
    EXPECT_EQ((Calls{"rw init", "rdlock", "upgrade", "rw unlock", "wrlock", "rw unlock", "rw destroy"}),
              standIn.calls());
}

TEST(LockFault, ReaderWriterLockThrowsIfItCannotBeCreated)
{
    StandIn standIn;
    standIn.fail(ENOMEM);
    const system_error error = errorOf([] { const ReaderWriterLock lock; });
    EXPECT_EQ(12, error.error());
    EXPECT_STREQ("Cannot allocate memory", error.what());
    EXPECT_EQ(std::vector<std::string>{"com.kor.dal.nim.mt.ReaderWriterLock.ReaderWriterLock()"},
              functionsOf(error));
    EXPECT_EQ(Calls{"rw init"}, standIn.calls());
}

TEST(LockFault, ReaderWriterLockThrowsEveryStatus)
{
    StandIn standIn;
    const ReaderWriterLock lock;
    for (const int status : {16, 22, 11}) {
        standIn.fail(status);
        EXPECT_EQ(status, errorOf([&] { lock.acquireForRead(); }).error());
        EXPECT_EQ(status, errorOf([&] { lock.acquireForWrite(); }).error());
        EXPECT_EQ(status, errorOf([&] { lock.upgradeToWrite(); }).error());
        EXPECT_EQ(status, errorOf([&] { lock.release(); }).error());
        EXPECT_FALSE(lock.release(std::nothrow));
    }
    standIn.fail(16);
    EXPECT_STREQ("Device or resource busy", errorOf([&] { lock.upgradeToWrite(); }).what());
    // The destructor of the lock fails as well, without a diagnostic.
}

class Element : public QueueElement
{};

TEST(LockFault, QueueThrowsTheFailuresOfItsLock)
{
    Queue queue(1);
    Element element;
    {
        StandIn standIn;
        standIn.fail(EINVAL);
        const system_error inserting = errorOf([&] { queue.insert(&element, 0); });
        EXPECT_EQ(22, inserting.error());
        EXPECT_EQ((std::vector<std::string>{"com.kor.dal.nim.mt.SysMutex.acquire()",
                                            "com.kor.dal.nim.mt.Queue.insert()"}),
                  functionsOf(inserting));
        EXPECT_EQ((std::vector<std::string>{"com.kor.dal.nim.mt.SysMutex.acquire()",
                                            "com.kor.dal.nim.mt.Queue.next()"}),
                  functionsOf(errorOf([&] { queue.next(0); })));
        EXPECT_EQ((std::vector<std::string>{"com.kor.dal.nim.mt.SysMutex.acquire()",
                                            "com.kor.dal.nim.mt.Queue.complete()"}),
                  functionsOf(errorOf([&] { queue.complete(); })));
        EXPECT_EQ((std::vector<std::string>{"com.kor.dal.nim.mt.SysMutex.acquire()",
                                            "com.kor.dal.nim.mt.Queue.shutdown()"}),
                  functionsOf(errorOf([&] { queue.shutdown(); })));
    }
    EXPECT_TRUE(queue.ready());
    EXPECT_FALSE(queue.completed());
    EXPECT_EQ(nullptr, queue.next(0)) << "the caller still owns the element";
}

TEST(LockFault, QueueThrowsIfItCannotBeCreated)
{
    StandIn standIn;
    standIn.fail(EAGAIN);
    EXPECT_EQ(11, errorOf([] { const Queue queue(1); }).error());
    EXPECT_EQ(Calls{"init null"}, standIn.calls());
}

class Idle : public Task
{
public:
    Idle() : Task(nullptr, nullptr) {}
};

/** Returns the error number of the RX_ExFatal that `call` throws, or 0. */
template <class Call>
int rawFailure(Call call)
{
    try {
        call();
    } catch (const RX_ExFatal& error) {
        return error.getCode();
    }
    return 0;
}

TEST(LockFault, TaskThrowsFailuresUntranslated)
{
    Idle task;
    StandIn standIn;
    standIn.fail(EINVAL);
    EXPECT_EQ(22, rawFailure([&] { task.interrupt(1); }));
    EXPECT_EQ(22, rawFailure([&] { task.interrupted(); }));
    EXPECT_EQ(22, rawFailure([&] { task.waitForCompletion(0); }));
    EXPECT_EQ(22, rawFailure([&] { task.waitForStateChange(0); }));
    EXPECT_EQ(Task::TSF_READY, task.status());
    standIn.fail(0);
}

TEST(LockFaultDeathTest, FailedDestroyOfASysMutexTerminatesTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            StandIn standIn;
            const SysMutex mutex;
            standIn.fail(EBUSY);
        },
        testing::KilledBySignal(SIGABRT), "RX_ExFatal");
}

}
