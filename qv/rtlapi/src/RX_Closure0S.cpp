#include <qv/rtlapi/RX_Closure0S.hpp>

RX_Closure0S::RX_Closure0S(void (*function)()) : RX_ClosureS_<void (*)()>(function) {}

RX_Closure0S::~RX_Closure0S() noexcept(false) = default;
