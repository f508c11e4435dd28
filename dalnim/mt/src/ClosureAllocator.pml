/*
 * The cache of memory blocks of closures: ClosureAllocator::allocate(), deallocate(), the magazine of each thread,
 * the depot, and the exit hook. The cache is that of all closures, so that also tasks reuse memory through it.
 *
 * Two threads allocate and free blocks, each of them also those of the other one, and exit. There are four blocks;
 * a magazine has two, and the depot one magazine. `isEmpty` is read without the lock. Only one thread may use the
 * depot between tryLock() and unlock(); its steps in between are separate.
 *
 * Checked: a block is never allocated twice, or freed while it is cached; a thread never waits for another one (it
 * can always continue: no invalid end state); when all have exited, each block is in the depot or with the general
 * allocator, and in one place only.
 *
 * Mutants:
 *   NO_LOCK         the depot is used without its lock
 *   EARLY_UNLOCK    the release of the lock overtakes the change of the depot, as a relaxed store may
 *   KEEP_MAGAZINE   a thread keeps the blocks that it has moved to the depot
 *   NO_EXIT_HOOK    a thread does not free its magazine when it exits
 */
#define NO_LOCK 1
#define EARLY_UNLOCK 2
#define KEEP_MAGAZINE 3
#define NO_EXIT_HOOK 4
#ifndef MUTANT
#define MUTANT 0
#endif

#define BLOCKS 4
#define STEPS 5
#define GENERAL 0               /* with the general allocator */
#define USED 1
#define CACHED 2                /* in a magazine or in the depot */

byte place[BLOCKS];
byte depot[2];
bool isFull, isEmpty = true;    /* `count` of the depot, and its copy that is read without the lock */
bool locked;
byte exited;

inline move(block, from, to) { d_step { assert(place[block] == from); place[block] = to } }
#define UNLOCK if :: MUTANT == NO_LOCK || MUTANT == EARLY_UNLOCK :: else -> locked = false fi
#define EARLY if :: MUTANT == EARLY_UNLOCK -> locked = false :: else fi

/* tryPop(): `done` if it has moved two blocks to the empty magazine. */
inline tryPop() {
    done = false;
    if
    :: isEmpty
    :: else ->
       atomic { if :: !locked || MUTANT == NO_LOCK -> locked = (MUTANT != NO_LOCK); done = true :: else fi };
       if
       :: done ->
          done = isFull;
          EARLY;
          if :: done -> magazine[0] = depot[0]; magazine[1] = depot[1]; count = 2; isFull = false :: else fi;
          isEmpty = true;
          UNLOCK
       :: else
       fi
    fi
}
/* tryPush(): `done` if it has moved the full magazine. */
inline tryPush() {
    atomic { done = false; if :: !locked || MUTANT == NO_LOCK -> locked = (MUTANT != NO_LOCK); done = true :: else fi };
    if
    :: done ->
       done = !isFull;
       EARLY;
       if :: done -> depot[0] = magazine[0]; depot[1] = magazine[1]; isFull = true; isEmpty = false :: else fi;
       UNLOCK
    :: else
    fi
}
inline deleteAll() {
    do
    :: count != 0 -> count--; move(magazine[count], CACHED, GENERAL)
    :: else -> break
    od
}

active [2] proctype Thread()
{
    byte magazine[2], count, steps, block;
    bool done;
    do
    :: steps < STEPS -> steps++;
       if
       :: count != 0 -> count--; move(magazine[count], CACHED, USED)
       :: count == 0 ->
          tryPop();
          if
          :: done -> count--; move(magazine[count], CACHED, USED)
          :: else ->
             atomic {           /* operator new; without a free block this thread has all of its own */
                 if
                 :: place[0] == GENERAL -> place[0] = USED
                 :: place[1] == GENERAL -> place[1] = USED
                 :: place[2] == GENERAL -> place[2] = USED
                 :: place[3] == GENERAL -> place[3] = USED
                 :: else
                 fi
             }
          fi
       :: atomic {
              if
              :: place[0] == USED -> block = 0
              :: place[1] == USED -> block = 1
              :: place[2] == USED -> block = 2
              :: place[3] == USED -> block = 3
              fi;
              place[block] = CACHED
          };
          if
          :: count == 2 ->
             tryPush();
             if
             :: !done -> deleteAll()
             :: done && MUTANT != KEEP_MAGAZINE -> count = 0
             :: done && MUTANT == KEEP_MAGAZINE -> count = 1
             fi
          :: else
          fi;
          magazine[count] = block; count++
       fi
    :: break
    od;
    if :: MUTANT != NO_EXIT_HOOK -> deleteAll() :: else fi;
    exited++
}

active proctype Check()
{
    byte cached, i;
    exited == 2;
    for (i : 0 .. BLOCKS - 1) { if :: place[i] == CACHED -> cached++ :: else fi };
    assert(cached == (isFull -> 2 : 0) && isEmpty == !isFull)
}
