#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>

#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/sanitizers.hpp>

#include <cerrno>

namespace com::kor::dal::nim::sys::internal {

namespace {

#if QV_THREAD_SANITIZER

/** Without pthread_mutex_clocklock(), which the thread sanitizer of g++ 12 does not intercept. */
int lockUntil(si_mutex_t& mutex, const std::timespec& deadline) noexcept
{
    constexpr long NANOS_PER_SECOND = 1000000000;
    std::timespec until = {};
    std::timespec now = {};
    clock_gettime(CLOCK_REALTIME, &until);
    clock_gettime(CLOCK_MONOTONIC, &now);
    until.tv_sec += deadline.tv_sec - now.tv_sec;
    until.tv_nsec += deadline.tv_nsec - now.tv_nsec;
    if (until.tv_nsec < 0) {
        until.tv_nsec += NANOS_PER_SECOND;
        --until.tv_sec;
    } else if (until.tv_nsec >= NANOS_PER_SECOND) {
        until.tv_nsec -= NANOS_PER_SECOND;
        ++until.tv_sec;
    }
    return pthread_mutex_timedlock(&mutex.mutex, &until);
}

#else

int lockUntil(si_mutex_t& mutex, const std::timespec& deadline) noexcept
{
    return pthread_mutex_clocklock(&mutex.mutex, CLOCK_MONOTONIC, &deadline);
}

#endif

}

bool ForkSafeMutex::Hold::prepare(si_mutex_t& held, const std::timespec* deadline) noexcept
{
    qv::perturb();
    const int status = deadline == nullptr ? pthread_mutex_lock(&held.mutex) : lockUntil(held, *deadline);
    if (status == 0) {
        state = State::ACQUIRED;
    } else {
        state = status == EDEADLK ? State::HELD_BEFORE : State::NONE;
    }
    return state != State::NONE;
}

// Releases the mutex that prepare() acquired.
DALNIM_NO_LOCK_ANALYSIS void ForkSafeMutex::Hold::afterForkInParent(si_mutex_t& held) noexcept
{
    // Reset before the unlock: afterwards another fork may write it.
    const bool isAcquired = state == State::ACQUIRED;
    state = State::NONE;
    if (isAcquired) {
        qv_si_mutex_unlock(&held);
    }
}

void ForkSafeMutex::Hold::afterForkInChild(si_mutex_t& held, bool isRecursive) noexcept
{
    const State before = state;
    state = State::NONE;
    if (before != State::NONE) {
        // Fails with EPERM, since the owner is the thread ID that this thread had in the parent. The thread
        // sanitizer, however, identifies threads differently, and would report the next lock as a second one.
        pthread_mutex_unlock(&held.mutex);
    }
    qv_si_mutex_init(&held, isRecursive ? "R" : nullptr);
    if (before == State::HELD_BEFORE) {
        // The mutex is unlocked. Not a blocking lock, to which the order of the locks would apply.
        static_cast<void>(pthread_mutex_trylock(&held.mutex));
    }
}

}
