#ifndef TESTS_FAULTS_LAYER_FAULT_HPP
#define TESTS_FAULTS_LAYER_FAULT_HPP

/**
 * @file
 * Faults of the system, on order. A program that is linked with this layer stands in for the calls named
 * below, for itself and for every library that it has loaded, and passes them on as long as no fault is
 * armed. A fault concerns the thread that armed it, and no other.
 */

namespace faults {

/** The calls that can fail. What they stand for is in Interposed*.cpp. */
enum class Call {
    /** operator new, in all its forms. */
    NEW,
    /** malloc, calloc and realloc, also where the C library calls them; not what is behind NEW. */
    MALLOC,

    OPEN,
    FOPEN,
    WRITE,
    RENAME,
    REMOVE,
    MKDIR,
    OPENDIR,
    READDIR,
    STAT,
    ACCESS,
    READLINK,
    REALPATH,
    GETCWD,

    THREAD_CREATE,
    THREAD_ATTR_INIT,
    THREAD_ATTR_SETDETACHSTATE,
    KEY_CREATE,
    SETSPECIFIC,
    MUTEXATTR_INIT,
    MUTEX_INIT,
    MUTEX_LOCK,
    MUTEX_TRYLOCK,
    CONDATTR_INIT,
    CONDATTR_SETCLOCK,
    COND_INIT,
    COND_WAIT,

    DLOPEN,
    DLCLOSE,
    GETADDRINFO,
    GETNAMEINFO,
    GETHOSTNAME,
    CLOCK_GETTIME,
    LOCALTIME,
    GMTIME,

    COUNT
};

/** Lets a call fail on this thread for as long as it lives, or until disarm(). */
class Fault
{
public:
    static constexpr unsigned int EVER = 0;

    /**
     * @param error  what the call fails with: its errno, or what it returns.
     * @param first  the first call to fail, counted from now and from 1.
     * @param count  how many fail, EVER for all from then on.
     */
    Fault(Call call, int error, unsigned int first = 1, unsigned int count = EVER) noexcept;
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;
    ~Fault();

    void disarm() noexcept;
    /** How many calls there were. */
    unsigned int calls() const noexcept;
    /** How many of them failed. */
    unsigned int failed() const noexcept;

private:
    const Call call;
};

/** For the calls themselves: what this one is to fail with, 0 for nothing. */
int strike(Call call) noexcept;

/** Lets the calls of a scope pass uncounted: those that another call of the layer makes. */
class Uncounted
{
public:
    explicit Uncounted(Call call) noexcept;
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;
    ~Uncounted();

private:
    const Call call;
};

}

#endif
