#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TaskEvidence.hpp>

#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/sys/internal/src/SafeMemory.hpp>
#include <dalnim/sys/internal/src/ThreadAnswer.hpp>
#include <dalnim/type/SecurityContext.hpp>
#include <dalnim/type/src/SharedEntries.hpp>

#include <cstring>
#include <new>
#include <typeinfo>

namespace com::kor::dal::nim::mt {

using sys::internal::SafeMemory;
using sys::internal::ThreadAnswer;
using sys::internal::ThreadState;

namespace {

/** The bytes of an object that may have been destroyed, of which only plain fields may be read. */
template <class T>
class RawCopy
{
public:
    explicit RawCopy(const void* object) noexcept
        : isReadable(object != nullptr && SafeMemory::read(memory, object, sizeof memory))
    {
    }

    const T* get() const noexcept
    {
        return isReadable ? std::launder(reinterpret_cast<const T*>(memory)) : nullptr;
    }

private:
    alignas(T) char memory[sizeof(T)];
    const bool isReadable;
};

const struct Registration
{
    Registration() noexcept
    {
        ThreadAnswer::describeTask.store(TaskEvidence::describe, std::memory_order_release);
    }
} registration;

}

void TaskEvidence::describe(ThreadAnswer& answer, const ThreadState& thread) noexcept
{
    if (thread.task != nullptr) {
        describeTask(answer, thread.task);
    }
    if (thread.pool != nullptr) {
        describePool(answer, thread.pool);
    }
    const void* const context = securityContext(thread);
    if (context != nullptr) {
        // A reference is a pointer.
        static_assert(sizeof(type::ConstSecurityTokenRef) == sizeof(void*), "unknown layout of a reference");
        const void* token = nullptr;
        SafeMemory::readValue(token, &static_cast<const type::SecurityContext*>(context)->token());
        SafeMemory::readTypeName(answer.tokenType, sizeof answer.tokenType, token);
    }
}

void TaskEvidence::describeTask(ThreadAnswer& answer, const void* task) noexcept
{
    answer.hasTask = true;
    const RawCopy<Task> copy(task);
    if (copy.get() != nullptr) {
        answer.taskId = copy.get()->_id;
        SafeMemory::readText(answer.taskName, sizeof answer.taskName, copy.get()->_name.data());
        SafeMemory::readTypeName(answer.taskType, sizeof answer.taskType, copy.get()->_target);
    }
}

// The pool may have been destroyed while its task runs: the copy may be of what was an object.
__attribute__((no_sanitize("undefined"))) void TaskEvidence::describePool(ThreadAnswer& answer,
                                                                          const void* pool) noexcept
{
    answer.hasPool = true;
    const RawCopy<ThreadPool> copy(pool);
    if (copy.get() != nullptr) {
        answer.poolId = copy.get()->_id;
        SafeMemory::readText(answer.poolName, sizeof answer.poolName, copy.get()->_name.data());
    }
}

/** Returns the security context of the thread, or null if there is none or if it cannot be found. */
const void* TaskEvidence::securityContext(const ThreadState& thread) noexcept
{
    // The context belongs to this thread, and exists as long as its state. Its entries may be changing.
    const type::ContainerContext& context = *thread.contextRef.get();
    const void* object = nullptr;
    if (context.isAdopted) {
        constexpr int MOST_ENTRIES = 1000;
        const RawCopy<type::EntryList> list(context.adopted.get());
        if (list.get() == nullptr) {
            return nullptr;
        }
        const type::EntryList::Entry* entry = list.get()->entries().data();
        const std::size_t count = list.get()->entries().size();
        for (std::size_t i = 0; i < count && i < MOST_ENTRIES && object == nullptr; ++i, ++entry) {
            UInt32_t cid = 0;
            if (!SafeMemory::readValue(cid, &entry->cid)) {
                return nullptr;
            }
            if (cid == type::SecurityContext::KEY) {
                SafeMemory::readValue(object, &entry->ref);
            }
        }
    } else {
#ifdef __GLIBCXX__
        // A search of the tree that ends also if another one is being made of it.
        constexpr int MOST_STEPS = 64;
        typedef std::_Rb_tree_node<type::ContainerContext::Content::value_type> Node;
        std::_Rb_tree_node_base node = {};
        if (!SafeMemory::readValue(node, context.content.end()._M_node)) {
            return nullptr;
        }
        const std::_Rb_tree_node_base* next = node._M_parent;
        for (int i = 0; i < MOST_STEPS && next != nullptr && object == nullptr; ++i) {
            const auto* const value = static_cast<const Node*>(next)->_M_valptr();
            UInt32_t cid = 0;
            if (!SafeMemory::readValue(cid, &value->first) || !SafeMemory::readValue(node, next)) {
                return nullptr;
            }
            if (cid == type::SecurityContext::KEY) {
                SafeMemory::readValue(object, &value->second);
            }
            next = type::SecurityContext::KEY < cid ? node._M_left : node._M_right;
        }
#endif
    }
    constexpr std::size_t NAME_SIZE = 128;
    char name[NAME_SIZE];
    SafeMemory::readTypeName(name, sizeof name, object);
    const bool isContext = std::strcmp(name, typeid(type::SecurityContext).name()) == 0;
    return isContext ? SafeMemory::completeObject(object) : nullptr;
}

}
