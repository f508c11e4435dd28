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

#include <cstddef>
#include <cstring>
#include <map>
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

/**
 * A node of a std::map that may be changing, which rules out iterators. Depends on the C++ library; its
 * binary interface determines the layout.
 */
template <class Map>
struct TreeNode
{
    const void* left = nullptr;
    const void* right = nullptr;
    /** The address of the entry, which has not been read. */
    const typename Map::value_type* value = nullptr;

#if defined(__GLIBCXX__)

    /** Returns the address of the root, or null if the map is empty or cannot be read. */
    static const void* root(const Map& map) noexcept
    {
        std::_Rb_tree_node_base header = {};
        return SafeMemory::readValue(header, map.end()._M_node) ? header._M_parent : nullptr;
    }
    /** Reads a node. Returns false if that is not possible. */
    bool read(const void* node) noexcept
    {
        std::_Rb_tree_node_base links = {};
        const bool isRead = SafeMemory::readValue(links, node);
        left = links._M_left;
        right = links._M_right;
        value = static_cast<const std::_Rb_tree_node<typename Map::value_type>*>(node)->_M_valptr();
        return isRead;
    }

#elif defined(_LIBCPP_VERSION)

    static const void* root(const Map& map) noexcept
    {
        struct Header
        {
            const void* first;
            const void* root;
            std::size_t size;
        };
        static_assert(sizeof(Map) == sizeof(Header), "unknown layout of a map");
        Header header = {};
        return SafeMemory::readValue(header, &map) ? header.root : nullptr;
    }
    bool read(const void* node) noexcept
    {
        struct Links
        {
            const void* left;
            const void* right;
            const void* parent;
            bool isBlack;
        };
        constexpr std::size_t ALIGNMENT = alignof(typename Map::value_type);
        constexpr std::size_t VALUE =
            (offsetof(Links, isBlack) + sizeof(bool) + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
        Links links = {};
        const bool isRead = SafeMemory::readValue(links, node);
        left = links.left;
        right = links.right;
        value = reinterpret_cast<const typename Map::value_type*>(static_cast<const char*>(node) + VALUE);
        return isRead;
    }

#else
#error "The nodes of std::map are known for libstdc++ and libc++ only."
#endif
};

const struct Registration
{
    Registration() noexcept
    {
        // Released to handlers on other threads, which acquire the initialised library.
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
        // A search of the tree that ends also if another one is being made of it.
        constexpr int MOST_STEPS = 64;
        typedef TreeNode<type::ContainerContext::Content> Node;
        Node node;
        const void* next = Node::root(context.content);
        for (int i = 0; i < MOST_STEPS && next != nullptr && object == nullptr; ++i) {
            UInt32_t cid = 0;
            if (!node.read(next) || !SafeMemory::readValue(cid, &node.value->first)) {
                return nullptr;
            }
            if (cid == type::SecurityContext::KEY) {
                SafeMemory::readValue(object, &node.value->second);
            }
            next = type::SecurityContext::KEY < cid ? node.left : node.right;
        }
    }
    constexpr std::size_t NAME_SIZE = 128;
    char name[NAME_SIZE];
    SafeMemory::readTypeName(name, sizeof name, object);
    const bool isContext = std::strcmp(name, typeid(type::SecurityContext).name()) == 0;
    return isContext ? SafeMemory::completeObject(object) : nullptr;
}

}
