#ifndef FUZZ_SUPPORT_COSTLYEXPRESSION_HPP
#define FUZZ_SUPPORT_COSTLYEXPRESSION_HPP

#include <algorithm>
#include <cstddef>
#include <string>

/**
 * Returns true for expressions that the system's regcomp() or regexec() is known to handle badly: these are
 * not our bugs. regcomp() copies operands of '+' and of counts, so each '+' around or after another doubles
 * the expression; it then follows each optional part of each copy separately. regexec() takes exponential
 * time for back references.
 */
inline bool isCostly(const std::string& expression)
{
    const auto isDigit = [](char byte) { return byte >= '0' && byte <= '9'; };
    const auto pluses = std::count(expression.begin(), expression.end(), '+');
    const auto optional = std::count_if(expression.begin(), expression.end(),
                                        [](char byte) { return byte == '?' || byte == '*'; });
    const auto counts = std::count(expression.begin(), expression.end(), '{');
    if (expression.size() > 100 || pluses + 8 * counts > 8) {
        return true;
    }
    const std::ptrdiff_t copies = counts != 0 ? 9 : std::ptrdiff_t{1} << pluses;
    if (copies * optional > 32) {
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

#endif
