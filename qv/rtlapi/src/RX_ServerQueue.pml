/*
 * The server queue: enqueue(), dequeue() and deliver() of RX_ServerQueue, with TwoLockQueue and IdleWorkers.
 *
 * Two producers put closures into a queue of capacity CAPACITY; two workers run them. The queue is not closed, and no
 * worker ends. One worker, while it spins, may be preempted forever. `shown` is what a producer that holds only its
 * own lock may still read as the size of the consumer side, which is relaxed: an older, greater value.
 *
 * Checked: when nothing can happen any more, each closure has been run and each producer has returned, also if a
 * worker has been preempted while it spun.
 *
 * Mutants:
 *   PUSH_LATER       a worker becomes idle after it has released the locks under which it found the queue empty
 *   NO_RESPONSE      a producer does not wait for the response of a spinning worker
 *   COUNT_SPINNER    a spinning worker counts as one that has been woken
 *   NO_SIGNAL        a worker that removes a closure does not signal a blocked producer
 */
#define PUSH_LATER 1
#define NO_RESPONSE 2
#define COUNT_SPINNER 3
#define NO_SIGNAL 4
#ifndef MUTANT
#define MUTANT 0
#endif

#define PRODUCERS 2
#define EACH 2
#define CAPACITY 2
#define NONE 2                  /* no worker */
mtype = { ACTIVE, IDLE, WOKEN };

bool queueLock, consumerLock;
byte incoming, consumer, shown; /* closures */
byte blockedPuts;
byte run_, returned;            /* closures that were run, producers that have returned */
mtype state[2] = ACTIVE;        /* of the waiters */
byte spinner = NONE;
byte parked = NONE, nextParked = NONE; /* the stack of parked workers */
byte wokenCount;
bool isCounted[2];              /* wokenAt == _pushCount */
bool sleeps[2], putSleeps[PRODUCERS];
bool isPreempted;

#define LOCK(it) atomic { !it -> it = true }
#define SIZE (incoming + shown)

inline park(w) { nextParked = parked; parked = w }
inline wakeFor(pending) {       /* sets `woken` and `mustRespond` */
    woken = NONE; mustRespond = false;
    if
    :: pending > wokenCount && spinner != NONE ->
       woken = spinner; spinner = NONE; state[woken] = WOKEN;
       if :: MUTANT == COUNT_SPINNER -> wokenCount++; isCounted[woken] = true :: else fi;
       if :: parked != NONE -> mustRespond = true :: else -> woken = NONE fi
    :: pending > wokenCount && spinner == NONE && parked != NONE ->
       woken = parked; parked = nextParked; nextParked = NONE; state[woken] = WOKEN;
       wokenCount++; isCounted[woken] = true
    :: else
    fi
}

proctype Producer(bit me)
{
    byte puts, woken; bool mustRespond, isBlocked;
    do
    :: puts == EACH -> break
    :: puts < EACH ->
       LOCK(queueLock);
       if
       :: isBlocked ->
          do
          :: incoming + consumer < CAPACITY -> break
          :: SIZE >= CAPACITY -> atomic { putSleeps[me] = true; queueLock = false }; !putSleeps[me]; LOCK(queueLock)
          od;
          blockedPuts--
       :: else
       fi;
       if
       :: incoming + consumer < CAPACITY ->     /* a recent value of the size */
          d_step { incoming++; isBlocked = false; wakeFor(incoming + consumer) };
          queueLock = false;
          do                                    /* deliver() */
          :: woken == NONE -> break
          :: woken != NONE && !mustRespond -> sleeps[woken] = false; break
          :: woken != NONE && mustRespond ->
             if
             :: state[woken] != WOKEN || MUTANT == NO_RESPONSE -> break
             :: state[woken] == WOKEN && MUTANT != NO_RESPONSE ->
                LOCK(queueLock);
                d_step { wakeFor(SIZE) };
                queueLock = false
             fi
          od;
          puts++
       :: SIZE >= CAPACITY && !isBlocked ->     /* an old value, or the queue is full */
          queueLock = false;
          LOCK(consumerLock); LOCK(queueLock);
          d_step { blockedPuts++; shown = consumer; isBlocked = true; queueLock = false; consumerLock = false }
       fi
    od;
    returned++
}

proctype Worker(bit me)
{
    bool mustSpin;
end:
    do
    :: LOCK(consumerLock);                      /* dequeue() */
       if
       :: consumer != 0 && blockedPuts == 0 -> consumer--; consumerLock = false; run_++
       :: else ->
          LOCK(queueLock);
          if
          :: incoming + consumer != 0 ->
             d_step {
                 if :: consumer == 0 -> consumer = incoming; incoming = 0 :: else fi;
                 consumer--; shown = consumer;
                 if
                 :: blockedPuts != 0 && MUTANT != NO_SIGNAL && putSleeps[0] -> putSleeps[0] = false
                 :: blockedPuts != 0 && MUTANT != NO_SIGNAL && !putSleeps[0] -> putSleeps[1] = false
                 :: else
                 fi
             };
             queueLock = false; consumerLock = false;
             run_++
          :: else ->
             if :: MUTANT == PUSH_LATER -> queueLock = false; consumerLock = false; LOCK(consumerLock); LOCK(queueLock) :: else fi;
             d_step {                           /* push() */
                 shown = consumer;
                 state[me] = IDLE;
                 mustSpin = (spinner == NONE);
                 if :: mustSpin -> spinner = me :: else -> park(me) fi;
                 wokenCount = 0; isCounted[0] = false; isCounted[1] = false;
                 queueLock = false; consumerLock = false
             };
             if                                 /* wait() */
             :: mustSpin ->
                if
                :: state[me] == WOKEN -> state[me] = ACTIVE
                :: skip
                :: atomic { !isPreempted -> isPreempted = true };
endPreempted:      false
                fi
             :: else
             fi;
             LOCK(queueLock);
             if :: spinner == me -> d_step { spinner = NONE; park(me) } :: else fi;
             do
             :: state[me] == IDLE -> atomic { sleeps[me] = true; queueLock = false };
endParked:      !sleeps[me]; LOCK(queueLock)
             :: else -> break
             od;
             atomic {                           /* leave() */
                 state[me] = ACTIVE;
                 if :: isCounted[me] -> wokenCount--; isCounted[me] = false :: else fi
             };
             queueLock = false
          fi
       fi
    od
}

init {
    atomic { run Producer(0); run Producer(1); run Worker(0); run Worker(1) };
    timeout -> assert(run_ == PRODUCERS * EACH && returned == PRODUCERS)
}
