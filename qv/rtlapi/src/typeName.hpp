#ifndef QV_RTLAPI_SRC_TYPENAME_HPP
#define QV_RTLAPI_SRC_TYPENAME_HPP

#include <typeinfo>

#include <qv/rtlapi/RX_String.hpp>

namespace qv {

/** The name of a type as its writer spells it, or the mangled one when there is no other. */
RX_String typeName(const std::type_info& type);

}

#endif
