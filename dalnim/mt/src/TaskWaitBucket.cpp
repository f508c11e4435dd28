#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TaskWaitBucket.hpp>

#include <qv/pmx/src/perturb.hpp>
#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_Exception.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <pthread.h>
#include <type_traits>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

/** Number of buckets: a power of 2. */
constexpr std::size_t COUNT = 64;

/** Never destroyed: states of tasks in static storage change until the process has ended. */
TaskWaitBucket buckets[COUNT];
static_assert(std::is_trivially_destructible_v<TaskWaitBucket>);

void initializeAll(bool isForkedChild) noexcept
{
    for (TaskWaitBucket& bucket : buckets) {
        bucket.initialize(isForkedChild);
    }
}

/**
 * Initialises the buckets when the library is loaded: a fork during a lazy initialisation would leave the
 * child with one that never ends.
 */
const struct Initialization
{
    Initialization() noexcept
    {
        initializeAll(false);
        pthread_atfork(nullptr, nullptr, [] { initializeAll(true); });
    }
} initialization;

}

TaskWaitBucket& TaskWaitBucket::of(const Task* task) noexcept
{
    // Allocations are 16 bytes apart; the upper bits distinguish the elements of an array.
    const auto address = reinterpret_cast<std::uintptr_t>(task);
    return buckets[((address >> 4) ^ (address >> 10) ^ (address >> 16)) & (COUNT - 1)];
}

void TaskWaitBucket::wakeAll()
{
    const Lock lock(*this);
    lock.wakeAll();
}

void TaskWaitBucket::initialize(bool isForkedChild)
{
    if (isForkedChild) {
        mutex.afterForkInChild();
    }
    RX_Check(qv_si_cond_init(&changed, nullptr));
}

TaskWaitBucket::Lock::Lock(TaskWaitBucket& lockedBucket) : bucket(lockedBucket)
{
    RX_Check(bucket.mutex.lock());
}

TaskWaitBucket::Lock::~Lock() noexcept(false)
{
    RX_Check(bucket.mutex.unlock());
}

// The mutex is held by this object, under the name of the bucket.
DALNIM_NO_LOCK_ANALYSIS bool TaskWaitBucket::Lock::waitUntil(const RX_AbsTime& deadline) const
{
    // The system rejects a time before the start of its clock, which has passed as well.
    const timespec limit = {std::max(deadline.seconds(), 0), deadline.nanoseconds()};
    qv::perturb();
    const int status = bucket.mutex.waitUntil(bucket.changed, limit);
    if (status != ETIMEDOUT) {
        RX_Check(status);
    }
    return status != ETIMEDOUT;
}

void TaskWaitBucket::Lock::wakeAll() const
{
    RX_Check(pthread_cond_broadcast(&bucket.changed.cond));
}

}
