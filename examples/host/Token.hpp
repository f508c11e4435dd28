#ifndef NIMHOST_TOKEN_HPP
#define NIMHOST_TOKEN_HPP

#include <dalnim/mem/RefCntObject.hpp>

namespace nimhost {

/** What a source acts under; its identity is all there is to it. */
class Token : public com::kor::dal::nim::mem::RefCntObject
{
};

}

#endif
