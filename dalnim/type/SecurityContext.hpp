#ifndef DALNIM_TYPE_SECURITYCONTEXT_HPP
#define DALNIM_TYPE_SECURITYCONTEXT_HPP

#include <dalnim/type/ContainerContext.hpp>

namespace com::kor::dal::nim::type {

/** A token is whatever counted object the application makes of it. */
typedef mem::ConstRefCntObjectRef ConstSecurityTokenRef;

/**
 * Carries an opaque security token along with a flow of work: one object, shared by every thread that
 * the flow starts. The token can be set once. It has no lock: set it before threads start that look
 * at it.
 *
 * opCreate() and ContextScope::opRemove(), under KEY, give a block a security context of its own
 * unless there is one already.
 */
class DALNIM_API SecurityContext : public Context
{
public:
    static constexpr const char CLASS_NAME[] = "SecurityContext";

    /** The key of security contexts, allocated at load time; its content is shared. */
    static const UInt32_t KEY;

    /** The token; empty as long as none was set. */
    const ConstSecurityTokenRef& token() const noexcept
    {
        return tok_ref;
    }
    /**
     * Sets the token. Throws `std::logic_error`, "Attempt to replace SecurityToken at:\n" and the
     * trace of the caller, when there is one already, be it the same.
     */
    void token(const ConstSecurityTokenRef& ref);

    UInt32_t key() const override;

    /** The calling thread's security context; empty when it has none. */
    static mem::RcoRef<SecurityContext> current();
    /** A factory for ContextScope: a new security context for KEY, nothing for other keys. */
    static mem::RefCntObjectRef opCreate(const ContainerContextRef& target, unsigned int content_key,
                                         PointerInt_t param);

private:
    SecurityContext();
    SecurityContext(const SecurityContext&) = delete;
    SecurityContext& operator=(const SecurityContext&) = delete;
    ~SecurityContext() noexcept(false) override;

    ConstSecurityTokenRef tok_ref;
};

/** A counted reference to a security context. */
typedef mem::RcoRef<SecurityContext> SecurityContextRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<type::SecurityContext>;
extern template class DALNIM_API RcoRef<type::SecurityContext>;

}

#endif
