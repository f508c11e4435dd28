/*
 * The immutable snapshot of a context, which queued tasks share: snapshot() and detachSnapshot() of
 * ContainerContext, ContextSnapshot::transferTo(), SharedEntries, and the lock of the cache.
 *
 * Two threads add one task each from the same context. When both have done so, the first one removes an entry and
 * adds a third task. Two workers run the tasks: each adopts the snapshot, with a reference of
 * its own, and clears its context after the run. `uses` is the count of the shared_ptr to a snapshot, the cache
 * is a weak_ptr; a copy of the weak_ptr takes two steps, which its lock protects.
 *
 * Checked: a task finds the entry alive during its whole run, and the third task does not find it; a snapshot that
 * has been destroyed is not used again; the cache is never used by two threads at the same time; no reference is
 * left when all tasks have run, and the entry is destroyed once.
 *
 * Mutants:
 *   NO_LOCK       the cache is used without its lock
 *   RESET_FIRST   a worker releases the snapshot before it acquires its own references
 *   NO_DETACH     a change of the context does not detach the snapshot
 *   RAW_POINTER   the cache returns a snapshot without a check whether it still exists
 */
#define NO_LOCK 1
#define RESET_FIRST 2
#define NO_DETACH 3
#define RAW_POINTER 4
#ifndef MUTANT
#define MUTANT 0
#endif

#define NONE 3                  /* no snapshot */

byte references = 1;            /* of the entry: that of the context */
byte uses[3];
bool isDestroyed;
byte made;                      /* snapshots so far */
byte cache = NONE;
bool locked;
bool isRemoved;                 /* the entry, from the context */
bool isWithout[3];              /* a snapshot that does not contain it */
byte inCache;                   /* threads that use the cache */
byte added, finished;           /* tasks */

chan queue = [3] of { byte };

inline acquireEntry() { if :: isWithout[it] :: else -> d_step { assert(!isDestroyed); references++ } fi }
inline releaseEntry() {
    d_step { assert(references != 0); references--; isDestroyed = (references == 0) }
}
inline releaseSnapshot() {
    atomic { assert(uses[it] != 0); uses[it]--; isLast = (uses[it] == 0) };
    if :: isLast && !isWithout[it] -> releaseEntry() :: else fi
}
#define TRY_LOCK(isLocked) \
    atomic { isLocked = (!locked || MUTANT == NO_LOCK); locked = (locked || isLocked) }
#define ENTER atomic { inCache++; assert(inCache == 1) }
#define LEAVE inCache--; locked = false

/* Adds a task with snapshot(). */
inline add() {
    it = NONE;
    TRY_LOCK(isLocked);
    if
    :: isLocked ->
       ENTER;
       it = cache;
       atomic {                                 /* weak_ptr::lock() */
           if
           :: it != NONE && (uses[it] != 0 || MUTANT == RAW_POINTER) -> uses[it]++
           :: else -> it = NONE
           fi
       };
       LEAVE
    :: else
    fi;
    if
    :: it == NONE ->
       atomic { it = made; made++; uses[it] = 1; isWithout[it] = isRemoved };
       acquireEntry();
       TRY_LOCK(isLocked);
       if :: isLocked -> ENTER; cache = it; LEAVE :: else fi
    :: else
    fi;
    assert(isWithout[it] == isRemoved);
    queue ! it;
    added++
}

proctype Submitter(bool changes)
{
    byte it; bool isLocked;
    add();
    if
    :: changes ->
       added == 2;
       isRemoved = true;                        /* remove(): no other thread uses the context */
       if :: MUTANT != NO_DETACH -> cache = NONE :: else fi;
       releaseEntry();
       add()
    :: else
    fi
}

active [2] proctype Worker()
{
    byte it; bool isLast;
end:
    do
    :: queue ? it ->                            /* transferTo() */
       if
       :: MUTANT == RESET_FIRST -> releaseSnapshot(); acquireEntry()
       :: else -> acquireEntry(); releaseSnapshot()
       fi;
       if
       :: isWithout[it]
       :: else -> assert(!isDestroyed); releaseEntry()  /* the task, and clearContent() after it */
       fi;
       atomic { finished++; assert(finished < 3 || (references == 0 && isDestroyed)) }
    od
}

init { atomic { run Submitter(true); run Submitter(false) } }
