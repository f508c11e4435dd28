#include <qv/rtlapi/RX_Exception.hpp>

RX_Exception::RX_Exception(int code, const RX_String& a1, const RX_String& a2, const RX_String& a3,
                           const RX_String& a4, const RX_String& a5, const RX_String& a6)
    : RX_Exception_(0, RX_String::none, code, a1, a2, a3, a4, a5, a6)
{
}

RX_Exception::RX_Exception(unsigned int line, const RX_String& file, int code, const RX_String& a1,
                           const RX_String& a2, const RX_String& a3, const RX_String& a4, const RX_String& a5,
                           const RX_String& a6)
    : RX_Exception_(line, file, code, a1, a2, a3, a4, a5, a6)
{
}

RX_Exception::~RX_Exception() = default;

void RX_Exception::throwThis() const
{
    throw *this;
}

RX_Exception* RX_Exception::clone() const
{
    return new RX_Exception(*this);
}
