#include <dalnim/dalbase.hpp>

#include <dalnim/type/Raiseable.hpp>

namespace com::kor::dal::nim::type {

Raiseable::Raiseable() noexcept = default;
Raiseable::Raiseable(const Raiseable&) noexcept = default;
Raiseable& Raiseable::operator=(const Raiseable&) noexcept = default;
Raiseable::~Raiseable() = default;

}
