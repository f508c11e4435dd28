#include <qv/rtlapi/RX_fmt.hpp>

#include <charconv>
#include <limits>

RX_String RX_fmt(unsigned int value, unsigned int option, unsigned int width, unsigned int precision)
{
    return RX_fmt(static_cast<unsigned long>(value), option, width, precision);
}

RX_String RX_fmt(unsigned long value, unsigned int, unsigned int, unsigned int)
{
    char digits[std::numeric_limits<unsigned long>::digits10 + 1];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, value);
    return RX_String(digits, static_cast<std::size_t>(result.ptr - digits));
}
