// The class RegExp: the input is an expression, a zero byte and a string. It is compared with regcomp() and
// regexec().

#include <cstddef>
#include <cstdint>
#include <string>

#include <regex.h>

#include <dalnim/sys/SysError.hpp>
#include <dalnim/type/RegExp.hpp>
#include <fuzz/support/CostlyExpression.hpp>
#include <fuzz/support/Require.hpp>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using com::kor::dal::nim::sys::system_error;
    using com::kor::dal::nim::type::RegExp;

    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string expression = input.c_str();
    const std::string text = expression.size() < size ? input.substr(expression.size() + 1) : "";
    if (isCostly(expression)) {
        return 0;
    }

    regex_t regex;
    const int status = regcomp(&regex, expression.c_str(), REG_EXTENDED | REG_NOSUB);
    int error = 0;
    bool matched = false;
    try {
        matched = RegExp(expression).matches(text);
    } catch (const system_error& failure) {
        error = failure.error();
        require(failure.what()[0] != '\0');
    }
    require(error == status);
    if (status == 0) {
        require(matched == (regexec(&regex, text.c_str(), 0, nullptr, 0) == 0));
        regfree(&regex);
    }
    return 0;
}
