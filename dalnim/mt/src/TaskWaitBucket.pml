/*
 * The wait for a task: Task::_set_state(), waitForCompletion(), waitForStateChange(), interrupt() and the
 * TaskWaitBucket that threads wait in.
 *
 * A worker sets the task to RUNNING and to FINISHED. One thread waits for FINISHED, one for a change, a third one
 * interrupts the task. The owner is the thread that waits for FINISHED or one that polls status(), and destroys the
 * task as soon as it has found that state. The bucket is that of other tasks, too: it is woken at any time.
 *
 * Checked: the worker does not access the task once its owner may have destroyed it; no thread is left waiting (no
 * invalid end state); the wait for FINISHED returns only then.
 *
 * Mutants:
 *   NO_MARK           a waiting thread does not set HAS_WAITERS
 *   MARK_WITHOUT_LOCK  a waiting thread sets HAS_WAITERS before it acquires the lock of the bucket
 *   TWO_STEPS         the worker stores the state, and then looks at HAS_WAITERS
 *   SIGNAL_ONE        a change wakes one of the waiting threads
 */
#define NO_MARK 1
#define MARK_WITHOUT_LOCK 2
#define TWO_STEPS 3
#define SIGNAL_ONE 4
#ifndef MUTANT
#define MUTANT 0
#endif

#define QUEUED 1
#define RUNNING 2
#define FINISHED 3

byte state = QUEUED;            /* _state, without HAS_WAITERS */
bool hasWaiters, bits;          /* HAS_WAITERS, _intbits */
bool locked, sleeps[2];         /* the bucket, which is never destroyed */
bool isOver;                    /* the owner has found FINISHED */
bool isDestroyed;

#define USE assert(!isDestroyed)
#define LOCK atomic { !locked -> locked = true }

inline wakeAll() {
    atomic {
        if
        :: MUTANT == SIGNAL_ONE && sleeps[0] -> sleeps[0] = false
        :: else -> sleeps[0] = false; sleeps[1] = false
        fi
    }
}
inline setState(to) {
    if
    :: MUTANT == TWO_STEPS ->
       atomic { USE; state = to };
       atomic { USE; marked = hasWaiters; hasWaiters = false }
    :: else -> atomic { USE; state = to; marked = hasWaiters; hasWaiters = false }
    fi;
    if :: marked -> LOCK; wakeAll(); locked = false :: else fi
}

active proctype Worker()
{
    bool marked;
    setState(RUNNING);
    setState(FINISHED)
}

inline mark() { atomic { USE; found = state; hasWaiters = (MUTANT != NO_MARK || hasWaiters) } }
inline waitInBucket(me) { atomic { sleeps[me] = true; locked = false }; !sleeps[me]; LOCK }

/* waitForStateChange(): it must not outlive the task, which the owner therefore destroys afterwards. */
active proctype Observer()
{
    byte found, before;
    LOCK;
    if
    :: bits
    :: else ->
       atomic { USE; before = state };
       do
       :: mark();
          if
          :: found == before && !bits -> waitInBucket(0)
          :: else -> break
          fi
       od
    fi;
    locked = false;
    isOver = true
}

/* waitForCompletion(), or a loop that polls status(). */
active proctype Owner()
{
    byte found;
    bool polls;
    if :: polls = true :: polls = false fi;
    if
    :: polls -> atomic { state == FINISHED -> found = state }
    :: else ->
       if :: MUTANT == MARK_WITHOUT_LOCK -> mark(); if :: found != FINISHED -> LOCK; waitInBucket(1) :: else -> LOCK fi :: else -> LOCK fi;
       do
       :: mark();
          if
          :: found == FINISHED -> break
          :: else -> waitInBucket(1)
          fi
       od;
       locked = false
    fi;
    assert(found == FINISHED);
    isOver;
    isDestroyed = true
}

/* interrupt(), which the owner must await as well. */
active proctype Interrupter()
{
    LOCK;
    if :: !isDestroyed -> bits = true; wakeAll() :: else fi;
    locked = false
}
