#ifndef DALNIM_TYPE_CONTEXT_HPP
#define DALNIM_TYPE_CONTEXT_HPP

#include <dalnim/mem/RcoRef.hpp>

namespace com::kor::dal::nim::type {

/**
 * State that belongs to a flow of work and follows it from thread to thread. The class also allocates the
 * keys that content is stored under.
 *
 * A content key identifies content. Three of its bits, the attributes, determine what happens to the content
 * when a context is duplicated for a new thread. Keys differ from run to run.
 */
class DALNIM_API Context : public virtual mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "Context";

    /** Returns the content key that this context is stored under. */
    virtual UInt32_t key() const = 0;

    /**
     * Allocates a key. Keys with the same attributes can collide after 64 allocations, since not all bits of
     * their sequence number fit. Any thread may call this function, also at load time.
     * @param key_attributes  what a duplicate gets: 0 nothing, 1 the same object, 2 a clone, 4 or 6 a deep
     * clone
     * @throws sys::system_error  22 (EINVAL): "Unrecognized content attributes." above 7, "Conflicting
     * content attributes." for 1 combined with others
     */
    static UInt32_t allocateKey(unsigned int key_attributes);
    /**
     * Returns the attributes of a key.
     * @throws sys::system_error  22 (EINVAL): "Reserved content key." for 0xFFFFFFFF, "Key contains
     * conflicting content attributes."
     */
    static UInt32_t keyAttributes(unsigned int content_key);
    /** Returns the calling thread's current context. */
    static mem::RcoRef<Context> current();

protected:
    Context() noexcept;
    /** The copy starts without references. */
    Context(const Context& ref) noexcept;
    /** Copies nothing: the references to this context are unaffected. */
    Context& operator=(const Context& ref) noexcept;
    ~Context() noexcept(false) override;
};

/** A counting reference to a context. */
typedef mem::RcoRef<Context> ContextRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<type::Context>;
extern template class DALNIM_API RcoRef<type::Context>;

}

#endif
