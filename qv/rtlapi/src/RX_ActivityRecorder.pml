/*
 * The activity counter: inc(), dec(), finishLast() and both forms of waitForQuiet() of RX_ActivityRecorder.
 *
 * Two closures run on two workers; the first one puts the second. One thread waits without a limit, another one
 * with a limit that may expire at any moment. These two hold the only references. Each atomic operation on
 * `_finished` is one step. `_startedBound` is left out, since it only saves reads of `_started`.
 *
 * Checked: a thread that finds a backlog of 0 finds all closures released; the object is not accessed after the
 * last waiting thread has released its reference; dec() never finds a backlog of 0; no thread is left waiting.
 *
 * Mutants:
 *   STARTED_FIRST      `_started` is read before `_finished`, as relaxed loads might be
 *   COUNT_BEFORE_LOCK  finishLast() counts the closure before it acquires the lock
 *   CLEARED_BIT        finishLast() does not check HAS_WAITERS again under the lock
 *   NO_BROADCAST       dec() does not look at HAS_WAITERS
 */
#define STARTED_FIRST 1
#define COUNT_BEFORE_LOCK 2
#define CLEARED_BIT 3
#define NO_BROADCAST 4
#ifndef MUTANT
#define MUTANT 0
#endif

#define CLOSURES 2

byte started = 1;    /* _started: the first closure has been put */
byte finished;       /* _finished, without HAS_WAITERS */
bool hasWaiters;     /* HAS_WAITERS */
bool locked;
bool waits;          /* the thread without a limit is in the wait for _quiet */
byte references = 2;
byte released;       /* closures that have been released */

#define USE assert(references != 0)
#define READ_FINISHED atomic { USE; seen = finished; flag = hasWaiters }

inline acquire() { atomic { !locked -> USE; locked = true } }
inline release() { atomic { USE; locked = false } }
inline readBoth() {
    if
    :: MUTANT == STARTED_FIRST -> atomic { USE; total = started }; READ_FINISHED
    :: else -> READ_FINISHED; atomic { USE; total = started }
    fi
}

proctype Worker(bool putsAnother)
{
    byte seen, total;
    bool flag;
    if
    :: putsAnother -> atomic { USE; started++; run Worker(false) }
    :: else
    fi;
    released++;
    do
    :: readBoth();
       assert(total > seen);
       if
       :: flag && total - seen == 1 && MUTANT != NO_BROADCAST ->
          if
          :: MUTANT == COUNT_BEFORE_LOCK -> atomic { USE; finished++ }; acquire(); waits = false; release(); break
          :: else -> acquire()
          fi;
          if
          :: hasWaiters || MUTANT == CLEARED_BIT ->
             atomic { USE; seen = finished; finished++ };
             atomic { USE; if :: started - seen == 1 -> waits = false :: else fi };
             release();
             break
          :: else -> release()
          fi
       :: else ->
          atomic {
              USE;
              if
              :: finished == seen && (hasWaiters == flag || MUTANT == NO_BROADCAST) -> finished++; break
              :: else
              fi
          }
       fi
    od
}

proctype Waiter(bool isTimed)
{
    byte seen, total;
    bool flag;
    readBoth();
    if
    :: !flag && total == seen -> skip
    :: else ->
       acquire();
       do
       :: atomic { USE; seen = finished; hasWaiters = true }; total = started;
          if
          :: total == seen -> atomic { USE; hasWaiters = false }; break
          :: total != seen && !isTimed -> atomic { waits = true; locked = false }; !waits; acquire()
          :: total != seen && isTimed ->
             release();
             acquire();
             atomic { USE; seen = finished; hasWaiters = false }; total = started;
             atomic { USE; waits = false };     /* the other thread sets the bit again */
             break
          fi
       od;
       release()
    fi;
    assert(total != seen || released == CLOSURES);
    references--
}

init { atomic { run Worker(true); run Waiter(false); run Waiter(true) } }
