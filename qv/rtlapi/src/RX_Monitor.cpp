#include <qv/rtlapi/RX_Monitor.hpp>

RX_Monitor::~RX_Monitor() noexcept(false) = default;
