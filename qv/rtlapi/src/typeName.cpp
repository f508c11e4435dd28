#include <qv/rtlapi/src/typeName.hpp>

#include <cstdlib>
#include <memory>

#include <cxxabi.h>

RX_String qv::typeName(const std::type_info& type)
{
    struct Free
    {
        void operator()(char* text) const noexcept
        {
            std::free(text);
        }
    };
    int status = 0;
    const std::unique_ptr<char, Free> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status));
    return RX_String(name ? name.get() : type.name());
}
