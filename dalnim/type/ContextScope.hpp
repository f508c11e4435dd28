#ifndef DALNIM_TYPE_CONTEXTSCOPE_HPP
#define DALNIM_TYPE_CONTEXTSCOPE_HPP

#include <dalnim/type/ContainerContext.hpp>

namespace com::kor::dal::nim::type {

/**
 * Limits the lifetime of an entry of a context to a block: creates and stores it unless the key already has
 * an entry, and cleans up at the end of the block. Scopes for the same key nest: only the one that created
 * the entry removes it.
 *
 * Thread safety: none, a scope belongs to one thread.
 */
class DALNIM_API ContextScope
{
public:
    static constexpr const char CLASS_NAME[] = "ContextScope";

    /**
     * A factory, whose result is stored even if it is empty, or a clean-up, whose result is released.
     * @param param  the caller's opaque parameter
     */
    typedef mem::RefCntObjectRef (*Operation)(const ContainerContextRef& target, unsigned int content_key,
                                              PointerInt_t param);

    /** An inactive scope. */
    ContextScope() noexcept;
    /**
     * Stores the result of `factory` if `target` has no object under `content_key`. Does nothing if `target`
     * is empty or `factory` is null. `cleanup` may be null. Exceptions of the factory and of
     * ContainerContext::add() propagate, and no clean-up runs.
     */
    ContextScope(Operation factory, Operation cleanup, unsigned int content_key, PointerInt_t op_param,
                 const ContainerContextRef& target);
    /**
     * Cleans up the entry that this scope created. A `std::exception` of the clean-up is logged at WARNING
     * under the library's module; any other exception terminates the process.
     */
    ~ContextScope();

    ContextScope(const ContextScope&) = delete;
    ContextScope& operator=(const ContextScope&) = delete;

    /**
     * Cleans up the entry that this scope created, then does the same as the constructor. If the clean-up
     * throws, the scope is unchanged.
     */
    ContextScope& set(Operation factory, Operation cleanup, unsigned int content_key, PointerInt_t op_param,
                      const ContainerContextRef& target);
    /**
     * Cleans up the entry that this scope created, and makes the scope inactive. If the clean-up throws, the
     * scope is unchanged.
     */
    ContextScope& clear();
    /** Returns true if this scope created an entry. */
    bool active() const noexcept
    {
        return invoke;
    }

    /** A clean-up that removes the entry and returns it. `param` is ignored. */
    static mem::RefCntObjectRef opRemove(const ContainerContextRef& target, unsigned int content_key,
                                         PointerInt_t param);

private:
    void enter(Operation factory);
    bool cleanupIsDue() const noexcept;

    ContainerContextRef ref;
    UInt32_t key;
    PointerInt_t prm;
    Operation fini;
    bool invoke;
};

}

#endif
