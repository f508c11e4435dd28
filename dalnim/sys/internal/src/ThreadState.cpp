#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/ThreadState.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/SysError.hpp>

#include <atomic>
#include <memory>
#include <new>
#include <pthread.h>

namespace com::kor::dal::nim::sys::internal {

namespace {

/** True once the key exists; the store releases the key to the threads that see it. */
std::atomic<bool> _ts_tls_init(false);
si_thread_key_t _ts_tls_key;

void _ts_tls_destroy(void* p)
{
    if (p == nullptr) {
        return;
    }
    // A current() that runs later on this thread makes a new state and never finds this one.
    if (_ts_tls_init.load(std::memory_order_acquire)) {
        qv_si_thread_setspecific(_ts_tls_key, nullptr);
    }
    const std::unique_ptr<ThreadState> owner(static_cast<ThreadState*>(p));
}

/** The only thread of a forked child goes on with its parent's state, under a new number. */
void renumber_in_child()
{
    if (void* const p = qv_si_thread_getspecific(_ts_tls_key)) {
        const ThreadID_t* const tid = &static_cast<ThreadState*>(p)->tid;
        ::new (const_cast<ThreadID_t*>(tid)) ThreadID_t(qv_si_thread_self());
    }
}

void create_key()
{
    const InitLock lock(true);
    if (!_ts_tls_init.load(std::memory_order_relaxed)) {
        if (qv_si_thread_keycreate(&_ts_tls_key, _ts_tls_destroy) != 0) {
            qv_si_panic_internal("sys/internal/src/ThreadState", 90);
        }
        pthread_atfork(nullptr, nullptr, renumber_in_child);
        _ts_tls_init.store(true, std::memory_order_release);
    }
}

}

ThreadState::ThreadState()
    : tid(qv_si_thread_self()), mode(1), task(nullptr), thrd(nullptr), pool(nullptr), lock(nullptr)
{
}

ThreadState::~ThreadState() = default;

ThreadState& ThreadState::current()
{
    if (!_ts_tls_init.load(std::memory_order_acquire)) {
        create_key();
    }
    if (void* const p = qv_si_thread_getspecific(_ts_tls_key)) {
        return *static_cast<ThreadState*>(p);
    }
    std::unique_ptr<ThreadState> state(new ThreadState);
    const qv_err_t status = qv_si_thread_setspecific(_ts_tls_key, state.get());
    if (status != 0) {
        // The error must not look for the state of this thread again: it has none to trace with.
        state.reset();
        throw system_error(status);
    }
    return *state.release();
}

}
