#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/ThreadState.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/src/AlternateStack.hpp>
#include <dalnim/sys/internal/src/ThreadInquiry.hpp>
#include <dalnim/sys/internal/src/ThreadRegister.hpp>
#include <dalnim/sys/internal/src/ThreadStateCache.hpp>
#include <qv/pmx/panic.h>
#include <qv/pmx/thread.h>

#include <atomic>
#include <memory>
#include <new>
#include <pthread.h>

namespace com::kor::dal::nim::sys::internal {

__thread ThreadState* cached_state = nullptr;

namespace {

/**
 * True once the key exists. The store releases the key to a thread whose first load, an acquire, sees it. The
 * load under InitLock may be relaxed: the lock orders it after the store.
 */
std::atomic<bool> _ts_tls_init(false);
si_thread_key_t _ts_tls_key;

void _ts_tls_destroy(void* p)
{
    if (p == nullptr) {
        return;
    }
    // A later current() on this thread must construct a new state, and not return this one.
    cached_state = nullptr;
    ThreadRegister::leave();
    AlternateStack::release();
    if (_ts_tls_init.load(std::memory_order_acquire)) {
        qv_si_thread_setspecific(_ts_tls_key, nullptr);
    }
    const std::unique_ptr<ThreadState> owner(static_cast<ThreadState*>(p));
}

void create_key()
{
    const InitLock lock(true);
    if (!_ts_tls_init.load(std::memory_order_relaxed)) {
        if (qv_si_thread_keycreate(&_ts_tls_key, _ts_tls_destroy) != 0) {
            qv_si_panic_internal("sys/internal/src/ThreadState", 90);
        }
        _ts_tls_init.store(true, std::memory_order_release);
    }
}

}

void update_tid_in_child() noexcept
{
    if (cached_state != nullptr) {
        cached_state->_tid = qv_si_thread_self();
    }
    ThreadRegister::keepCallerOnly();
    ThreadInquiry::resetInChild();
}

namespace {

const int fork_handler_status = pthread_atfork(nullptr, nullptr, update_tid_in_child);

}

ThreadState::ThreadState()
    : _tid(qv_si_thread_self()), mode(1), task(nullptr), thrd(nullptr), pool(nullptr), lock(nullptr),
      contextRef(createContext()), tid(_tid)
{
}

ThreadState::~ThreadState()
{
    destroyContext(contextRef);
}

const ThreadState* ThreadState::find() noexcept
{
    return cached_state;
}

ThreadState& ThreadState::current()
{
    if (cached_state != nullptr) {
        return *cached_state;
    }
    if (!_ts_tls_init.load(std::memory_order_acquire)) {
        create_key();
    }
    std::unique_ptr<ThreadState> state(new ThreadState);
    if (const qv_err_t status = qv_si_thread_setspecific(_ts_tls_key, state.get())) {
        throw system_error(status);
    }
    cached_state = state.get();
    ThreadRegister::enter();
    if (AlternateStack::isGivenToNewThreads()) {
        AlternateStack::giveCaller();
    }
    return *state.release();
}

}
