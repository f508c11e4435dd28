#include <dalnim/dalbase.hpp>

#include <dalnim/mt/QueueElement.hpp>

namespace com::kor::dal::nim::mt {

QueueElement::QueueElement() noexcept : next(nullptr) {}
QueueElement::QueueElement(const QueueElement& ref) noexcept : type::Object(ref), next(nullptr) {}
// The position in a queue is a property of the object, not of its value.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
QueueElement& QueueElement::operator=(const QueueElement&) noexcept
{
    return *this;
}
QueueElement::~QueueElement() noexcept(false) {}

}
