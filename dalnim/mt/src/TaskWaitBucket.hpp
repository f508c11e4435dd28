#ifndef DALNIM_MT_SRC_TASKWAITBUCKET_HPP
#define DALNIM_MT_SRC_TASKWAITBUCKET_HPP

#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>

namespace com::kor::dal::nim::mt {

class Task;

/**
 * Where threads wait for tasks. A few bells serve all tasks, chosen by address: so whoever tells of a
 * state needs nothing of the task behind the store of that state, by which its owner may destroy it,
 * and a task that nobody waits for costs no lock. One who waits may be woken for the task of another.
 *
 * The mutex is the last of any order: nothing is taken, and nothing runs, under it.
 */
class TaskWaitBucket
{
public:
    /** The bell of a task, which need not be alive. */
    static TaskWaitBucket& of(const Task* task);

    TaskWaitBucket() : changed(mutex) {}

    /** Wakes all that wait here. */
    void wakeAll() const;

    RX_Mutex mutex;
    /** Bound to the mutex. */
    RX_Condition changed;
};

}

#endif
