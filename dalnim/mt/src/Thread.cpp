#include <dalnim/dalbase.hpp>

#include <dalnim/mt/Thread.hpp>

#define NIM_LOG_FILE "mt/src/Thread"
#include <dalnim/log/Statement.hpp>
#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/mt/src/Ownership.hpp>
#include <dalnim/mt/src/SafeLog.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <qv/pmx/thread.h>
#include <qv/rtlapi/RX_ClosureM0.hpp>
#include <qv/rtlapi/RX_ClosureM0S.hpp>
#include <qv/rtlapi/RX_Thread.hpp>
#include <qv/rtlapi/Reference.hpp>
#include <qv/rtlapi/src/KernelName.hpp>
#include <qv/rtlapi/src/userCode.hpp>

#include <new>
#include <stdexcept>
#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

qv::Reference<RX_Thread> makeSystemThread(qv::Reference<RX_Closure> closure)
{
    qv::Reference<RX_Thread> thread(new RX_Thread(closure.get()));
    static_cast<void>(closure.release());
    return thread;
}

/**
 * Stands for an exception that could not be copied because memory ran out. Constructed when the library is
 * loaded and never destroyed, since threads run until the process has ended.
 */
// NOLINTNEXTLINE(cert-err58-cpp): if memory runs out here, loading the library fails
std::exception* const outOfMemory = std::make_unique<std::bad_alloc>().release();

}

Thread::Thread(Runnable* tgt, bool joinable, bool destroy, const char* name)
    : Task(name, CLASS_NAME), _joinable(joinable), _manage(destroy), _state(TSF_READY), _target(tgt),
      _targetAsTask(dynamic_cast<Task*>(tgt)), _closure(nullptr), _id(taskId()), _name(Task::_name)
{
    const sys::StackTrack track("Thread()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (tgt == nullptr) {
        throw std::logic_error("Runnable target was NULL");
    }
    if (destroy) {
        // Last, since the target remains the caller's if construction fails.
        acquireOwnership(*tgt);
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
        const Ownership ownership = ownershipOf(*_target);
        if (_targetAsTask != nullptr && isSoleOwner(*_target, ownership)) {
            _targetAsTask->_set_state(TSF_DESTROYED);
        }
        endOwnership(_target, ownership, "Unexpected exception while destroying the target of a thread");
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
    // Copied on this thread, which owns the entries that are shared or cloned.
    _contextRef = new sys::internal::CurrentContext(*context);

    if (!joinable) {
        makeSystemThread(qv::Reference<RX_Closure>(new RX_ClosureM0<Thread>(this, &Thread::run_detached)))
            ->start();
        return;
    }
    _closure = new RX_ClosureM0S<Thread>(this, &Thread::run_joinable);
    try {
        makeSystemThread(qv::share<RX_Closure>(_closure))->start();
    } catch (...) {
        // No thread will mark it as done, so a join would wait indefinitely.
        _closure->failWithCurrentException();
        throw;
    }
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
    // Before the wait: a thread that has not finished overwrites it.
    setBothStates(TSF_JOINED);
    _closure->waitForCompletion();
    _closure->detach();
    _closure = nullptr;
    // Compatibility: the thread before its target, unlike everywhere else.
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
    // A thread that is its own target is set only once: its owner may destroy it when it is finished.
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
    if (_isKernelNameSet) {
        qv::KernelName(Task::_name.data()).applyToCaller();
    }
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
    // The system thread keeps the closure alive. This object may be destroyed from TSF_FINISHED on.
    RX_ClosureM0S<Thread>* const closure = _closure;
    if (const qv::CaughtException caught =
            qv::catchException([] { sys::internal::ThreadState::current(); })) {
        _exception.reset(copyForJoin(caught));
        setBothStates(TSF_FINISHED);
        return;
    }
    run_pre();
    try {
        if (const qv::CaughtException caught = qv::catchException([this] { run(); })) {
            _exception.reset(copyForJoin(caught));
        }
    } catch (...) {
        const bool isEnding = qv::isThreadEnding();
        run_post();
        if (isEnding) {
            // The run has ended its thread: join() has no exception to return.
            closure->markDone();
        }
        throw;
    }
    run_post();
}

void Thread::run_detached()
{
    if (const qv::CaughtException caught =
            qv::catchException([] { sys::internal::ThreadState::current(); })) {
        report(caught);
        setBothStates(TSF_FINISHED);
        return;
    }
    run_pre();
    try {
        if (const qv::CaughtException caught = qv::catchException([this] { run(); })) {
            report(caught);
        }
    } catch (...) {
        run_post();
        throw;
    }
    run_post();
}

/**
 * Returns a copy of the exception that ended the run. If copying throws, that exception is copied instead,
 * finally as a standard type, which fails only if memory runs out. Only a forced unwinding leaves this
 * function.
 */
std::exception* Thread::copyForJoin(qv::CaughtException caught) const
{
    typedef std::exception* (*Copy)(const std::exception&);
    constexpr Copy copies[] = {&Thread::cloneError, &Thread::cloneError, &Thread::_standardCopyOf};
    for (const Copy copy : copies) {
        std::exception* error = nullptr;
        qv::CaughtException failure = qv::catchException([&] {
            error = caught.known() != nullptr
                        ? copy(*caught.known())
                        : new std::logic_error("Unknown Exception propagated from joinable thread '" + name()
                                               + "'");
        });
        if (!failure) {
            return error;
        }
        if (dynamic_cast<const std::bad_alloc*>(failure.known()) != nullptr) {
            break;
        }
        caught = std::move(failure);
    }
    return outOfMemory;
}

void Thread::report(const qv::CaughtException& caught) const
{
    // Exceptions of the application's code are logged under its module, not the library's.
    using ::com_kor_dal_nim_log_module;
    logSafely(CLASS_NAME, [&] {
        if (caught.known() != nullptr) {
            NIM_LOG_TRAPPED(Severity_WARNING, *caught.known(),
                            "Exception from detached thread '" + name() + "' discarded");
        } else {
            NIM_LOG(Severity_ERROR) << "Unknown exception propagated from detached thread '" << name()
                                    << "'.";
        }
    });
}

void Thread::DeleteCopy::operator()(std::exception* exception) const noexcept
{
    if (exception != outOfMemory) {
        delete exception;
    }
}

}
