#ifndef QV_PMX_SRC_PROBES_HPP
#define QV_PMX_SRC_PROBES_HPP

/**
 * @file
 * Static probes (USDT) of the provider "dalnim", which bpftrace, perf, gdb and SystemTap can attach to.
 *
 * A probe is one instruction without effect, and a note in the library that describes where its arguments
 * are. It needs nothing at run time. Its arguments are values that the code has in any case: computing one
 * would cost time although no tool is attached. Without DALNIM_PROBES, which requires the header sys/sdt.h,
 * a probe is nothing, and its arguments are not compiled.
 *
 * The probes of mutexes are the exception: each acquisition must check whether the mutex is held, in three
 * instructions. They are compiled only with DALNIM_LOCK_PROBES as well, which is off by default. Those of
 * reader-writer locks, where a thread that waits knows it, are always there.
 *
 * tests/probes/probes.txt lists the probes for the tests.
 */

#ifdef DALNIM_PROBES

#include <sys/sdt.h>

#ifdef __clang__
// The macros of that header call variadic ones without a variadic argument, which clang 19 calls otherwise.
#pragma clang diagnostic ignored "-Wgnu-zero-variadic-macro-arguments"
#pragma clang diagnostic ignored "-Wc++20-extensions"
#endif

#define QV_PROBE_1(NAME, A) DTRACE_PROBE1(dalnim, NAME, A)
#define QV_PROBE_2(NAME, A, B) DTRACE_PROBE2(dalnim, NAME, A, B)
#define QV_PROBE_3(NAME, A, B, C) DTRACE_PROBE3(dalnim, NAME, A, B, C)

#else

#define QV_PROBE_1(NAME, A) static_cast<void>(0)
#define QV_PROBE_2(NAME, A, B) static_cast<void>(0)
#define QV_PROBE_3(NAME, A, B, C) static_cast<void>(0)

#endif

/** A logger has written a record: the name of its module, its severity as a number, its length in bytes. */
#define QV_PROBE_RECORD(MODULE, SEVERITY, LENGTH) QV_PROBE_3(record, MODULE, SEVERITY, LENGTH)

/** A log file has been rotated: its path, the number of rotated files; 0 and the error number otherwise. */
#define QV_PROBE_ROTATION(PATH, FILES, ERROR) QV_PROBE_3(rotation, PATH, FILES, ERROR)

/** A task is about to be queued: the addresses of task and pool, the name of the pool. */
#define QV_PROBE_TASK_QUEUED(TASK, POOL, NAME) QV_PROBE_3(task__queued, TASK, POOL, NAME)

/** A worker begins to run a task: the addresses of task and pool. */
#define QV_PROBE_TASK_BEGUN(TASK, POOL) QV_PROBE_2(task__begun, TASK, POOL)

/** A task has returned, or has thrown. It may have been destroyed: the address only identifies it. */
#define QV_PROBE_TASK_ENDED(TASK, POOL) QV_PROBE_2(task__ended, TASK, POOL)

/** The loader has loaded a library: the name by which it was requested, its handle. */
#define QV_PROBE_PLUGIN_LOADED(NAME, HANDLE) QV_PROBE_2(plugin__loaded, NAME, HANDLE)

/** The loader has released a library: the same, and 0 or the status of the system. */
#define QV_PROBE_PLUGIN_UNLOADED(NAME, HANDLE, STATUS) QV_PROBE_3(plugin__unloaded, NAME, HANDLE, STATUS)

/** A thread is about to wait for a lock, which is identified by its address. */
#define QV_PROBE_LOCK_CONTENDED(LOCK) QV_PROBE_1(lock__contended, LOCK)

/** The wait has ended: the lock, and 0 or the error number. */
#define QV_PROBE_LOCK_ACQUIRED(LOCK, STATUS) QV_PROBE_2(lock__acquired, LOCK, STATUS)

#endif
