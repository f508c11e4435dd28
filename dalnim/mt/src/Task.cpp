#include <dalnim/dalbase.hpp>

#include <dalnim/mt/Task.hpp>

#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/mt/src/BlockAllocator.hpp>
#include <dalnim/mt/src/Ownership.hpp>
#include <dalnim/mt/src/TaskEvidence.hpp>
#include <dalnim/mt/src/TaskName.hpp>
#include <dalnim/mt/src/TaskWaitBucket.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/UniqueID.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <qv/pmx/src/perturb.hpp>
#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>

#include <ios>
#include <memory>
#include <new>
#include <stdexcept>
#include <typeinfo>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

// Nothing else refers to the source that describes tasks in reports, which programs would otherwise leave in
// the static library.
[[gnu::used]] constexpr auto LINKED_EVIDENCE = &TaskEvidence::describe;

/** The one interrupt bit that interrupted() never clears. */
constexpr unsigned long STICKY_BIT = 0x80000000UL;

/** Returns a copy of `e` as a `Type`, or null if it is none. */
template <class Type>
std::exception* copyAs(const std::exception& e)
{
    const auto* const typed = dynamic_cast<const Type*>(&e);
    return typed != nullptr ? new Type(*typed) : nullptr;
}

}

Task::Task(Runnable* tgt, bool destroy, const char* name, const char* label)
    : _state(TSF_READY), _id(sys::UniqueID::nextUid32()), _intbits(0), _target(tgt), _manage(destroy),
      _name(_make_name(name, label, _id))
{
    const sys::StackTrack track("Task()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (tgt == nullptr) {
        throw std::logic_error("Runnable target was NULL");
    }
    if (destroy) {
        // Last, since the target remains the caller's if construction fails.
        acquireOwnership(*tgt);
    }
}

Task::Task(Runnable& tgt, const char* name, const char* label)
    : _state(TSF_READY), _id(sys::UniqueID::nextUid32()), _intbits(0), _target(&tgt), _manage(false),
      _name(_make_name(name, label, _id))
{
}

Task::Task(const char* name, const char* label)
    : _state(TSF_READY), _id(sys::UniqueID::nextUid32()), _intbits(0), _target(this), _manage(false),
      _name(_make_name(name, label, _id))
{
}

Task::~Task() noexcept(false)
{
    if (_manage) {
        endOwnership(_target, ownershipOf(*_target),
                     "Unexpected exception while destroying the target of a task");
    }
    releaseTaskName(_name);
}

void* Task::operator new(std::size_t size) // NOLINT(cert-dcl54-cpp): the sized delete matches
{
    return BlockAllocator::allocate(size);
}

void* Task::operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return BlockAllocator::allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void Task::operator delete(void* block, std::size_t size) noexcept
{
    BlockAllocator::deallocate(block, size);
}

// If a constructor throws: its size is not known.
void Task::operator delete(void* block, const std::nothrow_t&) noexcept
{
    ::operator delete(block);
}

void Task::run()
{
    if (_target == this) {
        return;
    }
    const sys::StackTrack track("run()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    sys::internal::ThreadState& thread = sys::internal::ThreadState::current();
    thread.task = this;
    _set_state(TSF_RUNNING);
    _last_finished() = nullptr;
    _target->run();
    _set_state(TSF_FINISHED);
    // From here on, the owner may destroy this task.
    _last_finished() = this;
    // Compatibility: cleared, not restored, also if another task has run this one.
    thread.task = nullptr;
}

String Task::name() const
{
    return String(_name.data(), _name.length());
}

unsigned long Task::interrupt(unsigned long bits)
{
    const TaskWaitBucket::Lock lock(_wait_bucket());
    _intbits |= bits != 0 ? bits : 1UL;
    lock.wakeAll();
    return _intbits;
}

unsigned long Task::interrupted()
{
    const TaskWaitBucket::Lock lock(_wait_bucket());
    const unsigned long bits = _intbits;
    _intbits &= STICKY_BIT;
    return bits;
}

bool Task::waitForCompletion(unsigned int ms) const
{
    // Compatibility: the part below one second is taken as microseconds, not milliseconds. Callers rely on
    // it.
    const RX_AbsTime deadline(RX_RelTime(static_cast<int>(ms / 1000), static_cast<int>(ms % 1000) * 1000));
    const TaskWaitBucket::Lock lock(_wait_bucket());
    if (ms == 0) {
        return status() == TSF_FINISHED;
    }
    bool hasWaited = false;
    while (_mark_waiter() != TSF_FINISHED) {
        if (!lock.waitUntil(deadline)) {
            return false;
        }
        hasWaited = true;
    }
    return hasWaited;
}

void Task::waitForStateChange(unsigned int ms) const
{
    const RX_AbsTime deadline(RX_RelTime(static_cast<int>(ms / 1000), static_cast<int>(ms % 1000) * 1000000));
    const TaskWaitBucket::Lock lock(_wait_bucket());
    if (_intbits != 0) {
        return;
    }
    const TaskState oldState = status();
    const unsigned long oldBits = _intbits;
    if (ms == 0) {
        return;
    }
    while (_mark_waiter() == oldState && _intbits == oldBits) {
        if (!lock.waitUntil(deadline)) {
            return;
        }
    }
}

Task* Task::currentTask()
{
    return sys::internal::ThreadState::current().task;
}

std::exception* Task::cloneError(const std::exception& e)
{
    std::exception* const clone = _cloneOf(e);
    return clone != nullptr ? clone : _standardCopyOf(e);
}

std::exception* Task::_cloneOf(const std::exception& e)
{
    if (const auto* const cloneable = dynamic_cast<const type::Cloneable*>(&e)) {
        std::unique_ptr<type::Cloneable> copy(cloneable->clone(false));
        auto* const error = dynamic_cast<std::exception*>(copy.get());
        if (error == nullptr) {
            throw std::bad_cast();
        }
        static_cast<void>(copy.release());
        return error;
    }
    return nullptr;
}

std::exception* Task::_standardCopyOf(const std::exception& e)
{
    typedef std::exception* (*Copy)(const std::exception&);
    constexpr Copy copies[] = {
        copyAs<std::ios_base::failure>, copyAs<std::bad_alloc>,     copyAs<std::bad_cast>,
        copyAs<std::bad_typeid>,        copyAs<std::runtime_error>, copyAs<std::logic_error>,
    };
    for (const Copy copy : copies) {
        if (std::exception* const error = copy(e)) {
            return error;
        }
    }
    return new std::exception(e);
}

const Task*& Task::_last_finished() noexcept
{
    __attribute__((tls_model("initial-exec"))) static thread_local const Task* task = nullptr;
    return task;
}

TaskWaitBucket& Task::_wait_bucket() const noexcept
{
    return TaskWaitBucket::of(this);
}

Task::TaskState Task::_mark_waiter() const
{
    // Acquires what the thread that has set the state did before. The release makes no difference to that
    // thread, but continues the release sequence for status().
    return static_cast<TaskState>(_state.fetch_or(HAS_WAITERS, std::memory_order_acq_rel) & ~HAS_WAITERS);
}

void Task::_set_state(TaskState ts)
{
    // Releases what this thread did to status() and _mark_waiter(), and acquires the accesses of threads that
    // have set HAS_WAITERS. After the exchange the owner may destroy the task: its bucket is found by the
    // address alone.
    qv::perturb();
    if ((_state.exchange(ts, std::memory_order_acq_rel) & HAS_WAITERS) != 0) {
        qv::perturb();
        TaskWaitBucket::of(this).wakeAll();
    }
}

RX_String Task::_make_name(const char* name, const char* label, TaskID_t id) const
{
    return makeTaskName(name, label != nullptr ? label : CLASS_NAME, id);
}

}
