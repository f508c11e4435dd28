#ifndef NIMHOST_TOKEN_HPP
#define NIMHOST_TOKEN_HPP

#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>

namespace nimhost {

/** A security token. It has no content: only its identity matters. */
class Token : public com::kor::dal::nim::mem::RefCntObject
{};

/**
 * Sets the security token of the calling thread during its lifetime. Each task that the thread submits gets a
 * copy of its context, which contains the token.
 */
class TokenScope
{
public:
    explicit TokenScope(const com::kor::dal::nim::type::ConstSecurityTokenRef& token);

private:
    const com::kor::dal::nim::type::ContextScope scope;
};

/** Returns true if the calling thread has this security token. */
bool isCurrentToken(const com::kor::dal::nim::type::ConstSecurityTokenRef& token);

}

#endif
