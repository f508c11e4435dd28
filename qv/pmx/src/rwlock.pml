/*
 * The reader-writer lock of rwlock.cpp, without upgrade(): the functions named in the comments below.
 *
 * Two readers and two writers acquire and release it, and may stop whenever they hold nothing. `state` is `_state`; each
 * access to it is one step, and a failed compare_exchange continues with the value that it has read. Time is a
 * number of releases: at most one in a row leaves the lock free for the fastest writer, the next one admits a
 * waiting writer.
 *
 * Checked: a writer owns the lock alone; no thread is left waiting (no invalid end state); a reader and a writer
 * that wait are overtaken by one writer and by eight accesses at most.
 *
 * Mutants:
 *   NO_HAND_OVER   the last reader that removes itself does not hand the lock over
 *   KEEP_READER    a reader that must wait does not remove itself
 *   ERASE_READERS  a writer's release erases the readers that are about to remove themselves
 *   READERS_FIRST  readers acquire the lock while a writer waits for it
 *   NEVER_ADMIT    each release leaves the lock free for the fastest writer
 */
#define NO_HAND_OVER 1
#define KEEP_READER 2
#define ERASE_READERS 3
#define READERS_FIRST 4
#define NEVER_ADMIT 5
#ifndef MUTANT
#define MUTANT 0
#endif

#define W0_LIMIT 8
#define R0_LIMIT 1
#define READERS 7
#define HAS_WAITERS 8
#define WRITER 16
#define NONE 2
#define CLOSED ((MUTANT == READERS_FIRST) -> WRITER : (WRITER | HAS_WAITERS))
#define BESIDES (((s & WRITER) && MUTANT != ERASE_READERS) -> (s & READERS) : 0)
#define OTHERS ((waitingReaders || second != NONE) -> HAS_WAITERS : 0)

byte state, waitingReaders, readersIn, writersIn;
byte first = NONE, second = NONE;                   /* the list of waiting writers, guarded by the mutex */
bool locked, mustAdmit, writerSleeps[2], readerSleeps[2];
bool w0waits, r0waits;                              /* the threads 0 wait, and have not been admitted */
byte w0passed, r0passed;                            /* accesses, of writers alone for r0, since they wait */

#define ACQUIRED(others, writers) \
    s = 0; w0waits = (w0waits && first != NONE && (first == 0 || second == 0)); \
    w0passed = (w0waits -> w0passed + 1 : 0); r0passed = (r0waits -> r0passed + writers : 0); \
    assert(others && w0passed <= W0_LIMIT && r0passed <= R0_LIMIT)

#define LOCK atomic { !locked -> locked = true; s = state }
/* compare_exchange in a loop, which a success ends; `then` happens under the mutex, so it can be the same step. */
#define EXCHANGE(to, then) atomic { if :: state == s -> state = to; then; s = 0; break :: else -> s = state fi }
#define ADMIT_FIRST writerSleeps[first] = false; first = second; second = NONE

inline admitOrWakeWriter() {
    if
    :: MUTANT != NEVER_ADMIT -> EXCHANGE(BESIDES | WRITER | OTHERS, ADMIT_FIRST; mustAdmit = false)
    :: !mustAdmit || MUTANT == NEVER_ADMIT ->
       EXCHANGE(BESIDES | HAS_WAITERS, writerSleeps[first] = false; mustAdmit = (MUTANT != NEVER_ADMIT))
    fi
}
inline releaseShared(handsOver) {
    do
    :: (s & READERS) == 1 && handsOver -> admitOrWakeWriter()
    :: else -> EXCHANGE(s - 1, skip)
    od
}
inline unlock() {
    s = state;
    do
    :: s & HAS_WAITERS ->                           /* handOver() */
       LOCK;
       if
       :: (s & WRITER) && waitingReaders ->         /* admitReaders() */
          atomic {
              state = (state & READERS) + waitingReaders + ((first != NONE) -> HAS_WAITERS : 0);
              waitingReaders = 0; r0waits = false; readerSleeps[0] = false; readerSleeps[1] = false; s = 0
          }
       :: (s & WRITER) && !waitingReaders -> do :: admitOrWakeWriter() od
       :: else -> releaseShared(true)
       fi;
       locked = false; break
    :: else -> EXCHANGE(((s & WRITER) -> (s & ~WRITER) : s - 1), skip)
    od
}

proctype Reader(bit me)
{
    byte s; bool holds;
end:
    do
    :: s = state;                                   /* tryLockShared() */
       if
       :: s & CLOSED
       :: else ->
          atomic { s = state; state = state + 1; holds = !(s & CLOSED) };
          do                                        /* withdrawReader() */
          :: holds || MUTANT == KEEP_READER -> break
          :: else ->
             atomic { s = state; holds = !(s & (WRITER | HAS_WAITERS)); if :: holds -> break :: else fi };
             if
             :: s & HAS_WAITERS ->                  /* withdrawFromWaiters() */
                LOCK;
                do
                :: !(s & (WRITER | HAS_WAITERS)) -> holds = true; break
                :: (s & HAS_WAITERS) && !(s & WRITER) -> releaseShared(MUTANT != NO_HAND_OVER); break
                :: s & WRITER -> EXCHANGE(s - 1, skip)
                od;
                locked = false; break
             :: else -> EXCHANGE(s - 1, skip)
             fi
          od
       fi;
       if
       :: holds
       :: else ->                                   /* waitShared() */
          LOCK;
          do
          :: !(s & CLOSED) -> EXCHANGE(s + 1, locked = false)
          :: else ->
             EXCHANGE(s | HAS_WAITERS, waitingReaders++; readerSleeps[me] = true; r0waits = (r0waits || me == 0); locked = false)
          od;
          !readerSleeps[me]
       fi;
       atomic { readersIn++; holds = false; ACQUIRED(writersIn == 0, 0) };
       readersIn--;
       unlock()
    od
}

proctype Writer(bit me)
{
    byte s;
end:
    do
    :: if
       :: atomic { state == 0 -> state = WRITER }   /* tryLockExclusive() */
       :: else ->                                   /* waitExclusive() */
          LOCK;
          do
          :: !(s & (WRITER | READERS)) -> EXCHANGE(s | WRITER, locked = false)
          :: else ->
             EXCHANGE(s | HAS_WAITERS, writerSleeps[me] = true; w0waits = (w0waits || me == 0); locked = false;
                      if :: first == NONE -> first = me :: else -> second = me fi)
          od;
          do
          :: atomic { !writerSleeps[me] && !locked -> locked = true };
             if
             :: first != me && second != me -> locked = false; break
             :: atomic { first == me && state == HAS_WAITERS -> state = WRITER | OTHERS; ADMIT_FIRST; locked = false }; break
             :: else -> atomic { writerSleeps[me] = true; locked = false }
             fi
          od
       fi;
       atomic { writersIn++; ACQUIRED(writersIn == 1 && readersIn == 0, 1) };
       writersIn--;
       unlock()
    od
}

init { atomic { run Reader(0); run Reader(1); run Writer(0); run Writer(1) } }
