#ifndef DALNIM_MT_RUNNINGTASK_HPP
#define DALNIM_MT_RUNNINGTASK_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>

#include <vector>

namespace com::kor::dal::nim::mt {

/**
 * A task that a worker of a pool was running at a certain moment. The task may have ended, and may have been
 * destroyed, since.
 *
 * Thread safety: plain values, as for an `int`.
 */
struct RunningTask
{
    /** ID of the task; 0 if it is not known. */
    TaskID_t task = 0;
    /** Name of the task, of which at most 64 bytes are stored; empty if it is not known. */
    String name;
    /**
     * Time since the start of the task, in milliseconds; 0 if the task was added before
     * ThreadPool::collectStatistics(), or without that call.
     */
    UInt64_t milliseconds = 0;
    /** Thread ID of the worker, or 0 if the thread is just starting. */
    ThreadID_t thread = 0;
    /** Name under which the kernel shows the thread; empty if it has ended. */
    String threadName;
    /**
     * The labels of the thread's tracks, innermost first, as in a StackTrace. Empty unless tracks are
     * included, sys::ThreadReport::install() has been called, and the thread has answered.
     */
    StringVector tracks;
};

/** Running tasks, in no particular order. */
typedef std::vector<RunningTask> RunningTasks;

/** The result of ThreadPool::shutdownWithin(). */
struct UnfinishedTasks
{
    /** Number of queued tasks that were discarded. */
    UInt32_t discarded = 0;
    /** The tasks that were still running at the end of the time limit. */
    RunningTasks running;
};

}

#endif
