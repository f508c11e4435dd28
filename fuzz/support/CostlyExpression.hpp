#ifndef FUZZ_SUPPORT_COSTLYEXPRESSION_HPP
#define FUZZ_SUPPORT_COSTLYEXPRESSION_HPP

#include <algorithm>
#include <cstddef>
#include <string>

/**
 * The system's compiler copies what is repeated by '+' or by count, which doubles the expression for
 * every '+' around or behind another; it follows what may be left out, in each of the copies, one by
 * one; and its matcher takes exponential time over back references.
 * That is theirs, and known; what is looked for here is ours.
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
