#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/ThreadExitHook.hpp>

#include <dalnim/sys/InitLock.hpp>

namespace com::kor::dal::nim::sys::internal {

bool ThreadExitHook::arm() noexcept
{
    State known = state.load(std::memory_order_acquire);
    if (known == State::NEW) {
        known = createKey();
    }
    return known == State::READY && qv_si_thread_setspecific(key, this) == 0;
}

ThreadExitHook::State ThreadExitHook::createKey() noexcept
{
    const InitLock lock(true);
    if (state.load(std::memory_order_relaxed) == State::NEW) {
        const bool isCreated = qv_si_thread_keycreate(&key, &ThreadExitHook::call) == 0;
        state.store(isCreated ? State::READY : State::FAILED, std::memory_order_release);
    }
    return state.load(std::memory_order_relaxed);
}

void ThreadExitHook::call(void* self)
{
    static_cast<const ThreadExitHook*>(self)->function();
}

}
