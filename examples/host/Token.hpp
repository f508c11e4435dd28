#ifndef NIMHOST_TOKEN_HPP
#define NIMHOST_TOKEN_HPP

#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>

namespace nimhost {

/** What a source acts under; its identity is all there is to it. */
class Token : public com::kor::dal::nim::mem::RefCntObject
{};

/**
 * Puts the calling thread under a token for the life of the object. Each task that the thread submits
 * meanwhile gets a copy of its context, and the token with it.
 */
class TokenScope
{
public:
    explicit TokenScope(const com::kor::dal::nim::type::ConstSecurityTokenRef& token);

private:
    const com::kor::dal::nim::type::ContextScope scope;
};

/** Whether the calling thread acts under this token. */
bool isUnder(const com::kor::dal::nim::type::ConstSecurityTokenRef& token);

}

#endif
