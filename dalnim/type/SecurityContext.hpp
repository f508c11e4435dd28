#ifndef DALNIM_TYPE_SECURITYCONTEXT_HPP
#define DALNIM_TYPE_SECURITYCONTEXT_HPP

#include <dalnim/type/ContainerContext.hpp>

namespace com::kor::dal::nim::type {

/** A security token: any reference-counted object of the application. */
typedef mem::ConstRefCntObjectRef ConstSecurityTokenRef;

/**
 * Carries an opaque security token with a flow of work: one object, shared by all threads that the flow
 * starts. The token can be set once.
 *
 * A ContextScope with KEY, opCreate() and ContextScope::opRemove() provides a security context for a block,
 * unless the thread already has one.
 *
 * Thread safety: none, set the token before starting threads that read it.
 */
class DALNIM_API SecurityContext : public Context
{
public:
    static constexpr const char CLASS_NAME[] = "SecurityContext";

    /** The key of security contexts, allocated at load time. Duplicates share the object. */
    static const UInt32_t KEY;

    /** Returns the token, or an empty reference if none was set. */
    const ConstSecurityTokenRef& token() const noexcept
    {
        return tok_ref;
    }
    /**
     * Sets the token. An empty `ref` has no effect.
     * @throws std::logic_error  "Attempt to replace SecurityToken at:\n" and the caller's stack trace, if a
     * token is already set, even if it is the same
     */
    void token(const ConstSecurityTokenRef& ref);

    UInt32_t key() const override;

    /** Returns the calling thread's security context, or an empty reference. */
    static mem::RcoRef<SecurityContext> current();
    /** A factory for ContextScope: returns a new security context for KEY, an empty reference for other keys.
     */
    static mem::RefCntObjectRef opCreate(const ContainerContextRef& target, unsigned int content_key,
                                         PointerInt_t param);

private:
    SecurityContext();
    SecurityContext(const SecurityContext&) = delete;
    SecurityContext& operator=(const SecurityContext&) = delete;
    ~SecurityContext() noexcept(false) override;

    ConstSecurityTokenRef tok_ref;
};

/** A counting reference to a security context. */
typedef mem::RcoRef<SecurityContext> SecurityContextRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<type::SecurityContext>;
extern template class DALNIM_API RcoRef<type::SecurityContext>;

}

#endif
