#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TaskWaitBucket.hpp>

#include <qv/rtlapi/RX_Locked_.hpp>

#include <cstddef>
#include <cstdint>
#include <new>
#include <pthread.h>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

/** A power of 2. */
constexpr std::size_t COUNT = 64;

/**
 * All bells. They are made when the library is loaded, and not by the first use, which the child of a fork
 * could find underway for ever; and never destroyed: tasks in static storage may be told of to the very end.
 */
class Buckets
{
public:
    Buckets() noexcept
    {
        initializeAll();
        // In the child of a fork nobody waits, and nobody is there to unlock what was locked.
        pthread_atfork(nullptr, nullptr, initializeAll);
    }

    TaskWaitBucket& operator[](std::size_t index) const
    {
        return *std::launder(reinterpret_cast<TaskWaitBucket*>(storage) + index);
    }

private:
    static void initializeAll() noexcept
    {
        for (std::size_t i = 0; i < COUNT; ++i) {
            ::new (storage + i * sizeof(TaskWaitBucket)) TaskWaitBucket;
        }
    }

    alignas(TaskWaitBucket) static unsigned char storage[COUNT * sizeof(TaskWaitBucket)];
};

alignas(TaskWaitBucket) unsigned char Buckets::storage[COUNT * sizeof(TaskWaitBucket)];
const Buckets buckets;

}

TaskWaitBucket& TaskWaitBucket::of(const Task* task)
{
    // Allocated objects lie 16 bytes apart; the bits above tell those of an array from each other.
    const auto address = reinterpret_cast<std::uintptr_t>(task);
    return buckets[((address >> 4) ^ (address >> 10) ^ (address >> 16)) & (COUNT - 1)];
}

void TaskWaitBucket::wakeAll() const
{
    const RX_Locked_ lock(mutex);
    changed.broadcast();
}

}
