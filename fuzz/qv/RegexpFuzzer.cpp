// Regular expressions: the input is an expression, a zero byte and a string.

#include <cstddef>
#include <cstdint>
#include <string>

#include <fuzz/support/CostlyExpression.hpp>
#include <fuzz/support/Require.hpp>
#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_Wildcard.hpp>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string expression = input.c_str();
    const std::string text = expression.size() < size ? input.c_str() + expression.size() + 1 : "";
    if (isCostly(expression)) {
        return 0;
    }

    RX_Wildcard wildcard("", RX_Wildcard::REGEXP);
    require(wildcard.matches(text.c_str()) == 1);
    try {
        wildcard.setPattern(RX_String(expression.c_str()), RX_Wildcard::REGEXP);
    } catch (const RX_ExError& error) {
        require(error.getCode() != 0);
        require(error.getArgument(0).length() != 0);
        require(wildcard.matches(text.c_str()) == 1);
        return 0;
    }
    const qv_bool_t result = wildcard.matches(text.c_str());
    require(result == 0 || result == 1);
    require(wildcard.matches(text.c_str()) == result);
    wildcard.freeCompiled();
    require(wildcard.matches(text.c_str()) == 0);
    return 0;
}
