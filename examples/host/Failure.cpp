#include "Failure.hpp"

#include <dalnim/sys/SysError.hpp>
#include <qv/rtlapi.hpp>

#include <algorithm>
#include <cxxabi.h>
#include <exception>
#include <iostream>
#include <new>
#include <typeinfo>

namespace nimhost {

namespace {

std::string oneLine(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

std::string currentType()
{
    const std::type_info* const type = abi::__cxa_current_exception_type();
    return type != nullptr ? "type " + com::kor::dal::nim::sys::demangle(type->name()) : "unknown type";
}

}

void continueThreadEnd()
{
    // Such an exception has no object.
    if (!std::current_exception()) {
        throw;
    }
}

std::string currentFailure()
{
    continueThreadEnd();
    try {
        throw;
    } catch (const std::exception& exc) {
        return oneLine(exc.what());
    } catch (const RX_Exception& exc) {
        return oneLine(exc.asString(0).data());
    } catch (...) {
        return "an exception of " + currentType();
    }
}

void writeError(std::initializer_list<std::string_view> parts) noexcept
{
    constexpr std::string_view NAME = "nimhost: ";
    try {
        std::string line(NAME);
        for (const std::string_view part : parts) {
            line += part;
        }
        line += '\n';
        std::cerr << line << std::flush;
    } catch (const std::bad_alloc&) {
        std::cerr << NAME;
        for (const std::string_view part : parts) {
            std::cerr << part;
        }
        std::cerr << std::endl;
    }
}

}
