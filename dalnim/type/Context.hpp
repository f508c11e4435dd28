#ifndef DALNIM_TYPE_CONTEXT_HPP
#define DALNIM_TYPE_CONTEXT_HPP

#include <dalnim/mem/RcoRef.hpp>

namespace com::kor::dal::nim::type {

/**
 * State that belongs to a flow of work and travels with it; and the authority for the keys that
 * content is filed under.
 *
 * A content key is an identity and, in three bits of it, an instruction: what becomes of the content
 * when a context is duplicated for a new thread. Keys differ from run to run.
 */
class DALNIM_API Context : public virtual mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "Context";

    /** The content key under which this context is filed. */
    virtual UInt32_t key() const = 0;

    /**
     * A new key, unique up to the narrowness of its layout. May be called at load time, by any thread.
     * @param key_attributes 0 stays behind when a context is duplicated, 1 is shared, 2 is cloned,
     *                       4 is cloned deeply (and so is 6)
     * Throws sys::system_error 22: "Unrecognized content attributes." above 7, "Conflicting content
     * attributes." for 1 together with others.
     */
    static UInt32_t allocateKey(unsigned int key_attributes);
    /**
     * The attributes of a key, from 0 to 7. Throws sys::system_error 22: "Reserved content key." for
     * 0xFFFFFFFF, "Key contains conflicting content attributes."
     */
    static UInt32_t keyAttributes(unsigned int content_key);
    /** The calling thread's current context. */
    static mem::RcoRef<Context> current();

protected:
    Context() noexcept;
    /** A copy has no references of its own. */
    Context(const Context& ref) noexcept;
    /** Copies nothing: who holds this context is not disturbed. */
    Context& operator=(const Context& ref) noexcept;
    ~Context() noexcept(false) override;
};

/** A counted reference to a context. */
typedef mem::RcoRef<Context> ContextRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<type::Context>;
extern template class DALNIM_API RcoRef<type::Context>;

}

#endif
