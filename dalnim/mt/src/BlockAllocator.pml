/*
 * The cache of memory blocks of tasks: BlockAllocator::allocate(), deallocate(), the magazine of each thread, the
 * depot, and the exit hook, for one size class.
 *
 * Two threads allocate and deallocate blocks, each of them also those of the other one, and exit. There are five
 * blocks; a magazine has two, and the depot at most one full magazine. Memory for a third magazine can be exhausted.
 * `hasFull` is read without the lock. The steps between tryLock() and unlock() are separate.
 *
 * Checked: a block is never allocated twice, or freed while it is cached; a magazine is in one place only; a thread
 * never waits for another one (no invalid end state); when all have exited, the cached blocks and the magazines are
 * those of the depot.
 *
 * Mutants:
 *   NO_LOCK        the depot is used without its lock
 *   EARLY_UNLOCK   the release of the lock overtakes the change of the depot, as a relaxed store may
 *   KEEP_MAGAZINE  a thread keeps the magazine that it has moved to the depot
 *   NO_EXIT_HOOK   a thread does not free its magazine when it exits
 */
#define NO_LOCK 1
#define EARLY_UNLOCK 2
#define KEEP_MAGAZINE 3
#define NO_EXIT_HOOK 4
#ifndef MUTANT
#define MUTANT 0
#endif

#define BLOCKS 5
#define STEPS 4
#define NONE 3                  /* no magazine */
#define GENERAL 0               /* with the general allocator */
#define USED 1
#define CACHED 2                /* in a magazine */

byte place[BLOCKS] = USED;
byte blocks[6], count[3];       /* of the magazines */
bool exists[3];
byte firstFull = NONE, firstEmpty = NONE, secondEmpty = NONE;  /* the lists of the depot */
bool hasFull, locked;
byte exited;

inline move(block, from, to) { d_step { assert(place[block] == from); place[block] = to } }
#define TRY_LOCK atomic { done = (!locked || MUTANT == NO_LOCK); locked = (locked || (done && MUTANT != NO_LOCK)) }
#define UNLOCK if :: MUTANT == NO_LOCK || MUTANT == EARLY_UNLOCK :: else -> locked = false fi
#define EARLY if :: MUTANT == EARLY_UNLOCK -> locked = false :: else fi
#define PUSH_EMPTY secondEmpty = firstEmpty; firstEmpty = mine
#define POP_EMPTY mine = firstEmpty; firstEmpty = secondEmpty; secondEmpty = NONE

/* tryRefill(): `done` if `mine`, which is empty or none, was exchanged for a full magazine. */
inline tryRefill() {
    done = false;
    if
    :: !hasFull
    :: else ->
       TRY_LOCK;
       if
       :: done ->
          EARLY;
          filled = firstFull;
          if
          :: filled != NONE ->
             firstFull = NONE;
             if :: mine != NONE -> PUSH_EMPTY :: else fi;
             mine = filled
          :: else -> done = false
          fi;
          hasFull = false;
          UNLOCK
       :: else
       fi
    fi
}
/* tryEmpty(): `done` if `mine`, which is full, was exchanged for an empty magazine or none. */
inline tryEmpty() {
    TRY_LOCK;
    if
    :: done ->
       EARLY;
       if
       :: firstFull == NONE -> firstFull = mine; hasFull = true; if :: MUTANT != KEEP_MAGAZINE -> POP_EMPTY :: else fi
       :: else -> done = false
       fi;
       UNLOCK
    :: else
    fi
}
inline deleteBlocks() {
    do
    :: count[mine] != 0 -> count[mine]--; move(blocks[mine * 2 + count[mine]], CACHED, GENERAL)
    :: else -> break
    od
}

active [2] proctype Thread()
{
    byte mine = NONE, filled, steps, block;
    bool done;
    do
    :: steps < STEPS ->             /* allocate() */
       steps++;
       done = true;
       if :: mine == NONE || count[mine] == 0 -> tryRefill() :: else fi;
       if
       :: done -> assert(count[mine] != 0); count[mine]--; move(blocks[mine * 2 + count[mine]], CACHED, USED)
       :: else ->                   /* operator new, if there is a block left */
          atomic {
              block = 0;
              do :: block < BLOCKS && place[block] != GENERAL -> block++ :: else -> break od;
              if :: block < BLOCKS -> place[block] = USED :: else fi
          }
       fi;
       filled = NONE; block = 0
    :: steps < STEPS ->             /* deallocate() of any block */
       steps++;
       atomic {
           do :: block < BLOCKS && place[block] != USED -> block++ :: else -> break od;
           if :: block < BLOCKS -> place[block] = CACHED :: else fi
       };
       if
       :: block < BLOCKS ->
          if
          :: mine != NONE && count[mine] == 2 -> tryEmpty(); if :: !done -> deleteBlocks() :: else fi
          :: else
          fi;
          atomic {                  /* new (nothrow) Magazine */
              if
              :: mine == NONE && !exists[0] -> mine = 0
              :: mine == NONE && exists[0] && !exists[1] -> mine = 1
              :: mine == NONE && exists[0] && exists[1] && !exists[2] -> mine = 2
              :: else
              fi;
              if :: mine != NONE -> exists[mine] = true :: else fi
          };
          if
          :: mine == NONE -> move(block, CACHED, GENERAL)
          :: else -> blocks[mine * 2 + count[mine]] = block; count[mine]++
          fi
       :: else
       fi;
       block = 0; done = false
    :: break
    od;
    if
    :: mine != NONE && MUTANT != NO_EXIT_HOOK -> deleteBlocks(); exists[mine] = false
    :: else
    fi;
    exited++
}

active proctype Check()
{
    byte cached, magazines, i;
    exited == 2;
    for (i : 0 .. BLOCKS - 1) { if :: place[i] == CACHED -> cached++ :: else fi };
    for (i : 0 .. 2) { if :: exists[i] -> magazines++ :: else fi };
    assert(cached == (firstFull != NONE -> 2 : 0) && hasFull == (firstFull != NONE));
    assert(magazines == (firstFull != NONE -> 1 : 0) + (firstEmpty != NONE -> 1 : 0) + (secondEmpty != NONE -> 1 : 0))
}
