#ifndef TESTS_FAULTS_LAYER_FAULT_HPP
#define TESTS_FAULTS_LAYER_FAULT_HPP

/**
 * @file
 * Fault injection. A program that is linked with this layer replaces the calls below, for itself and for
 * every library that it loads. Without an armed fault, calls are forwarded. A fault affects only the thread
 * that has armed it.
 */

namespace faults {

/** The calls that can fail. The functions are defined in Interposed*.cpp. */
enum class Call {
    /** operator new, in all its forms. */
    NEW,
    /** malloc, calloc and realloc, also in the C library, but not inside operator new. */
    MALLOC,
    /** Not with a sanitizer, and not the calls of malloc. */
    MMAP,

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

/** Makes a call fail on the calling thread, until the end of the scope or disarm(). */
class Fault
{
public:
    static constexpr unsigned int EVER = 0;

    /**
     * @param error  the error number: the `errno` or the result of the call.
     * @param first  the number of the first call that fails, counted from 1 and from now.
     * @param count  the number of calls that fail; EVER for all subsequent ones.
     */
    Fault(Call call, int error, unsigned int first = 1, unsigned int count = EVER) noexcept;
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;
    ~Fault();

    void disarm() noexcept;
    /** Returns the number of calls. */
    unsigned int calls() const noexcept;
    /** Returns the number of calls that failed. */
    unsigned int failed() const noexcept;

private:
    const Call call;
};

/** For the replaced functions: returns the error with which this call must fail, or 0. */
int nextError(Call call) noexcept;

/** Excludes the calls of a scope, such as those that another replaced function makes, from the count. */
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
