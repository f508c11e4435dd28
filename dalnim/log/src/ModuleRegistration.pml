/*
 * The filter of modules: readFilter() and publish() of ModuleRegistration, and the result that a Module caches.
 *
 * Two threads read the filter without a lock, each twice, while a third one publishes two new ones and deletes those
 * that no thread can be reading. Each thread has a store buffer with one slot per variable, as in a processor: a
 * store is visible to the others when the buffer is written back. A sequentially consistent operation writes it back
 * first; a store with release order leaves it, also before a later load.
 *
 * Checked: no thread reads a filter that has been deleted; a result that is cached with the current generation is
 * that of the current filter.
 *
 * Mutants:
 *   RELEASE_FILTER     the new filter is stored with release order
 *   RELEASE_COUNT      a reader increments the number of readers with release order
 *   GENERATION_FIRST   the generation is incremented before the filter is stored
 *   GENERATION_LATER   a module reads the generation after the filter
 */
#define RELEASE_FILTER 1
#define RELEASE_COUNT 2
#define GENERATION_FIRST 3
#define GENERATION_LATER 4
#ifndef MUTANT
#define MUTANT 0
#endif

#define FILTERS 3
#define NONE 255

byte filter, generation;        /* _filter, _update */
byte readers;                   /* _filterReaders */
bool isDeleted[FILTERS];
byte cachedGeneration[2] = NONE, cachedFilter[2];

byte bufferedFilter = NONE;     /* of the publisher */
bool bufferedCount[2];          /* of the readers */

active proctype Buffers()
{
end:
    do
    :: atomic { bufferedFilter != NONE -> filter = bufferedFilter; bufferedFilter = NONE }
    :: atomic { bufferedCount[0] -> readers++; bufferedCount[0] = false }
    :: atomic { bufferedCount[1] -> readers++; bufferedCount[1] = false }
    od
}

proctype Reader(bit me)
{
    byte times, known, read;
    do
    :: times == 2 -> break
    :: else ->
       times++;
       known = generation;                          /* getUpdate() */
       if
       :: MUTANT == RELEASE_COUNT -> bufferedCount[me] = true
       :: else -> readers++
       fi;
       read = filter;
       if :: MUTANT == GENERATION_LATER -> known = generation :: else fi;
       assert(!isDeleted[read]);                    /* the predicate begins */
       assert(!isDeleted[read]);                    /* and ends */
       atomic { !bufferedCount[me] -> readers-- };  /* read-modify-write: the buffer is written back */
       atomic { cachedGeneration[me] = known; cachedFilter[me] = read }
    od
}

active proctype Publisher()
{
    byte next, i;
    bool isUnread;
    for (next : 1 .. FILTERS - 1) {
        if :: MUTANT == GENERATION_FIRST -> generation++ :: else fi;
        if
        :: MUTANT == RELEASE_FILTER -> bufferedFilter = next
        :: else -> filter = next
        fi;
        if
        :: MUTANT == RELEASE_FILTER && readers == 0 -> isUnread = true
        :: else -> isUnread = false
        fi;
        atomic { bufferedFilter == NONE -> generation = (MUTANT == GENERATION_FIRST -> generation : generation + 1) };
        if :: isUnread || readers == 0 -> for (i : 0 .. next - 1) { isDeleted[i] = true } :: else fi
    }
}

init
{
    atomic { run Reader(0); run Reader(1) };
    timeout;
    assert(cachedGeneration[0] != generation || cachedFilter[0] == filter);
    assert(cachedGeneration[1] != generation || cachedFilter[1] == filter)
}
