#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/CurrentPrefix.hpp>

namespace com::kor::dal::nim::log {

namespace {

thread_local std::string_view current_prefix;

}

CurrentPrefix::CurrentPrefix(std::string_view prefix) noexcept : outer(current_prefix)
{
    current_prefix = prefix;
}

CurrentPrefix::~CurrentPrefix()
{
    current_prefix = outer;
}

std::size_t CurrentPrefix::lengthIn(std::string_view msg) noexcept
{
    const std::size_t length = current_prefix.size();
    return msg.substr(0, length) == current_prefix ? length : 0;
}

}
