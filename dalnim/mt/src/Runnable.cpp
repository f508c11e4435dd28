#include <dalnim/dalbase.hpp>

#include <dalnim/mt/Runnable.hpp>

namespace com::kor::dal::nim::mt {

Runnable::Runnable() noexcept = default;
Runnable::Runnable(const Runnable& ref) noexcept = default;
Runnable& Runnable::operator=(const Runnable& ref) noexcept = default;
Runnable::~Runnable() noexcept(false) {}

}
