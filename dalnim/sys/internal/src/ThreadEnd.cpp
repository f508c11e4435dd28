#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/ThreadEnd.hpp>

#include <dalnim/sys/InitLock.hpp>

namespace com::kor::dal::nim::sys::internal {

bool ThreadEnd::await() noexcept
{
    State known = state.load(std::memory_order_acquire);
    if (known == State::NEW) {
        known = makeKey();
    }
    return known == State::READY && qv_si_thread_setspecific(key, this) == 0;
}

ThreadEnd::State ThreadEnd::makeKey() noexcept
{
    const InitLock lock(true);
    if (state.load(std::memory_order_relaxed) == State::NEW) {
        const bool isMade = qv_si_thread_keycreate(&key, &ThreadEnd::call) == 0;
        state.store(isMade ? State::READY : State::REFUSED, std::memory_order_release);
    }
    return state.load(std::memory_order_relaxed);
}

void ThreadEnd::call(void* self)
{
    static_cast<const ThreadEnd*>(self)->function();
}

}
