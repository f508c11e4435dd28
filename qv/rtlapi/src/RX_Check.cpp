#include <qv/rtlapi/RX_ExFatal.hpp>

void RX_CheckThrow_(int status)
{
    throw RX_ExFatal(status);
}
