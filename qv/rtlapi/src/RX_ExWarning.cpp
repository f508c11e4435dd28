#include <qv/rtlapi/RX_ExWarning.hpp>

RX_ExWarning::RX_ExWarning(int code, const RX_String& a1, const RX_String& a2, const RX_String& a3,
                           const RX_String& a4, const RX_String& a5, const RX_String& a6)
    : RX_ExError(code, a1, a2, a3, a4, a5, a6)
{
}

RX_ExWarning::RX_ExWarning(unsigned int line, const RX_String& file, int code, const RX_String& a1,
                           const RX_String& a2, const RX_String& a3, const RX_String& a4, const RX_String& a5,
                           const RX_String& a6)
    : RX_ExError(line, file, code, a1, a2, a3, a4, a5, a6)
{
}

RX_ExWarning::RX_ExWarning(const RX_Exception& other) : RX_ExError(other) {}

RX_ExWarning::~RX_ExWarning() = default;

void RX_ExWarning::throwThis() const
{
    throw *this;
}

RX_ExWarning* RX_ExWarning::clone() const
{
    return new RX_ExWarning(*this);
}
