// Wildcard patterns: the input is a pattern, a zero byte and a string.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_Wildcard.hpp>

namespace {

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

bool matches(const std::string& pattern, const std::string& text)
{
    const RX_Wildcard compiled(RX_String(pattern.c_str()), RX_Wildcard::WILD);
    const qv_bool_t result = compiled.matches(text.c_str());
    require(result == 0 || result == 1);
    return result == 1;
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string pattern = input.c_str();
    const std::string text = pattern.size() < size ? input.c_str() + pattern.size() + 1 : "";

    require(matches(RX_Wildcard::quote(RX_String(text.c_str())).data(), text));

    bool matched = false;
    try {
        matched = matches(pattern, text);
    } catch (const RX_ExError& error) {
        require(error.getCode() == 22);
        return 0;
    }
    require(matches("?" + pattern, "x" + text) == matched);
    require(matches("<->x" + pattern, "07x" + text) == matched);
    if (matched) {
        require(matches("*" + pattern, "any" + text));
        require(matches(pattern + "*", text + "any"));
        require(matches(pattern + "<->", text + "07"));
    }
    return 0;
}
