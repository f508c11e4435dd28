#include <dalnim/dalbase.hpp>

#include <dalnim/sys/SysError.hpp>

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace com::kor::dal::nim::sys {

String demangle(const char* mangled, int* error)
{
    int status = 0;
    // Itanium C++ ABI, 3.4: the result is allocated by malloc and owned by the caller.
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    if (error != nullptr) {
        *error = status;
    }
    if (text) {
        return text.get();
    }
    return mangled != nullptr ? String(mangled) : String();
}

}
