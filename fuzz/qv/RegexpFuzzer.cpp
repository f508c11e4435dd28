// Regular expressions: the input is an expression, a zero byte, and a text.

#include <algorithm>
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

bool isDigit(char byte)
{
    return byte >= '0' && byte <= '9';
}

// The system's compiler copies what is repeated by '+' or by count, which doubles the expression for
// every '+' around or behind another, and its matcher takes exponential time over back references.
// That is theirs, and known; what is looked for here is ours.
bool isCostly(const std::string& expression)
{
    const auto pluses = std::count(expression.begin(), expression.end(), '+');
    const auto counts = std::count(expression.begin(), expression.end(), '{');
    if (expression.size() > 100 || pluses + 8 * counts > 8) {
        return true;
    }
    for (std::size_t i = 0; i + 1 < expression.size(); ++i) {
        const bool backReference = expression[i] == '\\' && isDigit(expression[i + 1]);
        const bool largeCount = counts != 0 && isDigit(expression[i]) && isDigit(expression[i + 1]);
        if (backReference || largeCount) {
            return true;
        }
    }
    return false;
}

}

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
