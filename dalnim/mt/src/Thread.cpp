#include <dalnim/dalbase.hpp>

#include <dalnim/mt/Thread.hpp>

#define NIM_LOG_FILE "mt/src/Thread"
#include <dalnim/log/Statement.hpp>
#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <qv/rtlapi/RX_ClosureM0.hpp>
#include <qv/rtlapi/RX_ClosureM0S.hpp>
#include <qv/rtlapi/RX_Thread.hpp>
#include <qv/rtlapi/Reference.hpp>

#include <stdexcept>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

qv::Reference<RX_Thread> makeSystemThread(qv::Reference<RX_Closure> closure)
{
    qv::Reference<RX_Thread> thread(new RX_Thread(closure.get()));
    static_cast<void>(closure.release());
    return thread;
}

/** Runs a log statement whose failure must not end the thread that it reports of. */
template <class Statement>
void logSafely(Statement statement)
{
    try {
        statement();
    } catch (const std::exception& exc) {
        std::cerr << "Thread: a report was lost: " << exc.what() << std::endl;
    } catch (...) {
        std::cerr << "Thread: a report was lost" << std::endl;
    }
}

}

Thread::Thread(Runnable* tgt, bool joinable, bool destroy, const char* name)
    : Task(name, CLASS_NAME), _joinable(joinable), _manage(destroy), _state(TSF_READY), _target(tgt),
      _targetAsTask(dynamic_cast<Task*>(tgt)), _closure(nullptr), _id(taskId()), _name(Task::_name)
{
    const sys::StackTrack track("Thread()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (tgt == nullptr) {
        throw std::logic_error("Runnable target was NULL");
    }
}

Thread::Thread(Runnable& tgt, bool joinable, const char* name)
    : Task(name, CLASS_NAME), _joinable(joinable), _manage(false), _state(TSF_READY), _target(&tgt),
      _targetAsTask(dynamic_cast<Task*>(&tgt)), _closure(nullptr), _id(taskId()), _name(Task::_name)
{
}

Thread::Thread(bool joinable, const char* name) : Thread(joinable, name, CLASS_NAME) {}

Thread::Thread(bool joinable, const char* name, const char* label)
    : Task(name, label), _joinable(joinable), _manage(false), _state(TSF_READY), _target(this),
      _targetAsTask(this), _closure(nullptr), _id(taskId()), _name(Task::_name)
{
}

Thread::~Thread() noexcept(false)
{
    _exception.reset();
    if (_closure != nullptr) {
        _closure->detach();
        _closure = nullptr;
    }
    if (_manage && _target != nullptr) {
        if (_targetAsTask != nullptr) {
            _targetAsTask->_set_state(TSF_DESTROYED);
        }
        delete _target;
    }
    _set_state(TSF_DESTROYED);
    _target = nullptr;
    _targetAsTask = nullptr;
    _contextRef.clear();
}

void Thread::run()
{
    _target->run();
}

void Thread::start(bool joinable, const type::ContainerContext* context)
{
    const sys::StackTrack track("start()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (status() != TSF_READY) {
        throw std::logic_error("Thread not ready to be started");
    }
    setBothStates(TSF_STARTING);
    _joinable = joinable;
    if (context == nullptr) {
        context = sys::internal::ThreadState::current().contextRef.get();
    }
    // The copy is made here, so that what it shares or clones is read by the thread that owns it.
    _contextRef = new sys::internal::CurrentContext(*context);

    qv::Reference<RX_Closure> closure;
    if (joinable) {
        _closure = new RX_ClosureM0S<Thread>(this, &Thread::run_joinable);
        closure = qv::share(static_cast<RX_Closure*>(_closure));
    } else {
        closure.reset(new RX_ClosureM0<Thread>(this, &Thread::run_detached));
    }
    makeSystemThread(std::move(closure))->start();
}

void Thread::start(const type::ContainerContext* context)
{
    start(_joinable, context);
}

Thread* Thread::start(Runnable& tgt, bool joinable, const char* name, const type::ContainerContext* context)
{
    Thread* const thread = new Thread(tgt, joinable, name);
    thread->start(context);
    return thread;
}

Thread* Thread::start(Runnable* tgt, bool joinable, bool destroy, const char* name,
                      const type::ContainerContext* context)
{
    Thread* const thread = new Thread(tgt, joinable, destroy, name);
    thread->start(context);
    return thread;
}

const std::exception* Thread::join()
{
    const sys::StackTrack track("join()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!_joinable) {
        throw std::logic_error("Thread is not joinable");
    }
    if (_closure == nullptr) {
        throw std::logic_error("Target already joined, or never existed");
    }
    if (!_contextRef) {
        throw std::logic_error("Target already joined, or never started");
    }
    // Ahead of the wait: a thread that is not through yet overwrites it, and nobody relies on it.
    setBothStates(TSF_JOINED);
    _closure->waitForCompletion();
    _closure->detach();
    _closure = nullptr;
    // The thread before its target, the reverse of every other step.
    _set_state(TSF_READY);
    if (_targetAsTask != nullptr) {
        _targetAsTask->_set_state(TSF_READY);
    }
    _contextRef.clear();
    return _exception.get();
}

ThreadID_t Thread::threadId() const noexcept
{
    return qv_si_thread_self();
}

Thread* Thread::currentThread()
{
    return sys::internal::ThreadState::current().thrd;
}

void Thread::setBothStates(TaskState ts)
{
    // A thread that is its own target is set once: who sees it finished may destroy it.
    if (_targetAsTask != nullptr && _targetAsTask != this) {
        _targetAsTask->_set_state(ts);
    }
    _set_state(ts);
}

void Thread::run_pre()
{
    _exception.reset();
    sys::internal::ThreadState& thread = sys::internal::ThreadState::current();
    thread.contextRef->swap(*_contextRef);
    _contextRef->clearContent();
    thread.thrd = this;
    thread.task = this;
    thread.pool = nullptr;
    setBothStates(TSF_RUNNING);
}

void Thread::run_post()
{
    setBothStates(TSF_FINISHED);
    sys::internal::ThreadState& thread = sys::internal::ThreadState::current();
    thread.contextRef->clearContent();
    thread.task = nullptr;
    thread.thrd = nullptr;
    thread.pool = nullptr;
}

void Thread::run_joinable()
{
    run_pre();
    try {
        run();
    } catch (const std::exception& exc) {
        _exception.reset(cloneError(exc));
    } catch (...) {
        _exception = std::make_unique<std::logic_error>("Unknown Exception propagated from joinable thread '"
                                                        + name() + "'");
    }
    run_post();
}

void Thread::run_detached()
{
    run_pre();
    try {
        run();
    } catch (const std::exception& exc) {
        logSafely([&] {
            // What an application runs on its threads is logged under its module, not the library's.
            using ::com_kor_dal_nim_log_module;
            NIM_LOG_TRAPPED(Severity_WARNING, exc,
                            "Exception from detached thread '" + name() + "' discarded");
        });
    } catch (...) {
        logSafely([&] {
            using ::com_kor_dal_nim_log_module;
            NIM_LOG(Severity_ERROR) << "Unknown exception propagated from detached thread '" << name()
                                    << "'.";
        });
    }
    run_post();
}

}
