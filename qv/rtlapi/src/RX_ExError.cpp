#include <qv/rtlapi/RX_ExError.hpp>

RX_ExError::RX_ExError(int code, const RX_String& a1, const RX_String& a2, const RX_String& a3,
                       const RX_String& a4, const RX_String& a5, const RX_String& a6)
    : RX_ExFatal(code, a1, a2, a3, a4, a5, a6)
{
}

RX_ExError::RX_ExError(unsigned int line, const RX_String& file, int code, const RX_String& a1,
                       const RX_String& a2, const RX_String& a3, const RX_String& a4, const RX_String& a5,
                       const RX_String& a6)
    : RX_ExFatal(line, file, code, a1, a2, a3, a4, a5, a6)
{
}

RX_ExError::RX_ExError(const RX_Exception& other) : RX_ExFatal(other) {}

RX_ExError::~RX_ExError() = default;

void RX_ExError::throwThis() const
{
    throw *this;
}

RX_ExError* RX_ExError::clone() const
{
    return new RX_ExError(*this);
}
