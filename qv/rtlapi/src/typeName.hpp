#ifndef QV_RTLAPI_SRC_TYPENAME_HPP
#define QV_RTLAPI_SRC_TYPENAME_HPP

#include <typeinfo>

#include <qv/rtlapi/RX_String.hpp>

namespace qv {

/** Returns the demangled name of a type, or the mangled name if it cannot be demangled. */
RX_String typeName(const std::type_info& type);

}

#endif
