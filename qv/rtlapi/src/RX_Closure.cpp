#include <qv/rtlapi/RX_Closure.hpp>

#include <qv/rtlapi/src/typeName.hpp>

RX_Closure::~RX_Closure() noexcept(false) = default;

RX_String RX_Closure::asString(const RX_String& prefix) const
{
    RX_String label(prefix);
    if (label.length() != 0) {
        label += " ";
    }
    return label += qv::typeName(typeid(*this));
}
