#include <dalnim/dalbase.hpp>

#include <dalnim/type/Cloneable.hpp>

namespace com::kor::dal::nim::type {

Cloneable::Cloneable() noexcept = default;
Cloneable::Cloneable(const Cloneable&) noexcept = default;
Cloneable& Cloneable::operator=(const Cloneable&) noexcept = default;
Cloneable::~Cloneable() noexcept(false) {}

}
