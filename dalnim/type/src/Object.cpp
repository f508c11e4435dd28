#include <dalnim/dalbase.hpp>

#include <dalnim/type/Object.hpp>

namespace com::kor::dal::nim::type {

Object::Object(const Object&) noexcept = default;
Object& Object::operator=(const Object&) noexcept = default;
Object::~Object() noexcept(false) {}

}
