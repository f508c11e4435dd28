#ifndef DALNIM_TYPE_CONTEXTSCOPE_HPP
#define DALNIM_TYPE_CONTEXTSCOPE_HPP

#include <dalnim/type/ContainerContext.hpp>

namespace com::kor::dal::nim::type {

/**
 * Gives a piece of content of a context the lifetime of a block: makes it and files it unless the key
 * is taken, and undoes that at the end. Scopes for one key nest: only the one that made the content
 * removes it. A scope is used by one thread.
 */
class DALNIM_API ContextScope
{
public:
    static constexpr const char CLASS_NAME[] = "ContextScope";

    /**
     * Makes the content (what it gives is filed, also an empty reference), or cleans up (what it
     * gives is dropped).
     * @param param the caller's opaque parameter
     */
    typedef mem::RefCntObjectRef (*Operation)(const ContainerContextRef& target, unsigned int content_key,
                                              PointerInt_t param);

    /** An inactive scope. */
    ContextScope() noexcept;
    /**
     * Enters: when `target` has nothing under `content_key`, files what `factory` makes. Without a
     * target or a factory it does nothing; `cleanup` may be null. What the factory and the filing
     * throw passes, and no clean-up runs.
     */
    ContextScope(Operation factory, Operation cleanup, unsigned int content_key, PointerInt_t op_param,
                 const ContainerContextRef& target);
    /**
     * Cleans up what this scope made. A `std::exception` from the clean-up is logged at WARNING under
     * the library's module; anything else ends the process.
     */
    ~ContextScope();

    ContextScope(const ContextScope&) = delete;
    ContextScope& operator=(const ContextScope&) = delete;

    /** Cleans up what this scope made, then enters anew. A clean-up that throws changes nothing. */
    ContextScope& set(Operation factory, Operation cleanup, unsigned int content_key, PointerInt_t op_param,
                      const ContainerContextRef& target);
    /** Cleans up what this scope made and leaves it inactive. A clean-up that throws changes nothing. */
    ContextScope& clear();
    /** Whether this scope stands for content that it made. */
    bool active() const noexcept
    {
        return invoke;
    }

    /** A ready clean-up: removes the entry, and gives it. */
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
