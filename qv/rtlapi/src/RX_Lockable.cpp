#include <qv/rtlapi/RX_Lockable.hpp>

RX_Lockable::~RX_Lockable() noexcept(false) = default;
