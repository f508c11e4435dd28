#include <qv/rtlapi/RX_ExFatal.hpp>

RX_ExFatal::RX_ExFatal(int code, const RX_String& a1, const RX_String& a2, const RX_String& a3,
                       const RX_String& a4, const RX_String& a5, const RX_String& a6)
    : RX_Exception(code, a1, a2, a3, a4, a5, a6)
{
}

RX_ExFatal::RX_ExFatal(unsigned int line, const RX_String& file, int code, const RX_String& a1,
                       const RX_String& a2, const RX_String& a3, const RX_String& a4, const RX_String& a5,
                       const RX_String& a6)
    : RX_Exception(line, file, code, a1, a2, a3, a4, a5, a6)
{
}

RX_ExFatal::RX_ExFatal(const RX_Exception& other) : RX_Exception(other) {}

RX_ExFatal::~RX_ExFatal() = default;

void RX_ExFatal::throwThis() const
{
    throw *this;
}

RX_ExFatal* RX_ExFatal::clone() const
{
    return new RX_ExFatal(*this);
}
