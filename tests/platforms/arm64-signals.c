/*
 * Linked into every program that runs in the emulator, which cannot send the highest real-time signals. They
 * get a handler before main(), so that the library takes them for used and asks threads with another signal.
 */
#include <signal.h>
#include <unistd.h>

static void ignore(int number)
{
    (void)number;
}

__attribute__((constructor)) static void occupyUnsendableSignals(void)
{
    sigset_t one, before;
    const union sigval none = {0};
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number) {
        sigemptyset(&one);
        sigaddset(&one, number);
        sigprocmask(SIG_BLOCK, &one, &before);
        if (sigqueue(getpid(), number, none) == 0) {
            sigwaitinfo(&one, 0);
        } else {
            signal(number, ignore);
        }
        sigprocmask(SIG_SETMASK, &before, 0);
    }
}
