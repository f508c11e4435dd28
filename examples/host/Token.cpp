#include "Token.hpp"

#include <dalnim/type/ContainerContext.hpp>

namespace nimhost {

using com::kor::dal::nim::type::ConstSecurityTokenRef;
using com::kor::dal::nim::type::ContainerContext;
using com::kor::dal::nim::type::ContextScope;
using com::kor::dal::nim::type::SecurityContext;
using com::kor::dal::nim::type::SecurityContextRef;

TokenScope::TokenScope(const ConstSecurityTokenRef& token)
    : scope(SecurityContext::opCreate, ContextScope::opRemove, SecurityContext::KEY, 0,
            ContainerContext::current())
{
    SecurityContext::current()->token(token);
}

bool isCurrentToken(const ConstSecurityTokenRef& token)
{
    const SecurityContextRef security = SecurityContext::current();
    return security && security->token() == token;
}

}
