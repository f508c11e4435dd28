#ifndef DALNIM_LOG_SRC_DECIMALDIGITS_HPP
#define DALNIM_LOG_SRC_DECIMALDIGITS_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace com::kor::dal::nim::log {

/** Decimal numbers without the grouping of a locale, two digits at a time. */
class DecimalDigits
{
public:
    DecimalDigits() = delete;

    /** Length of the longest number of 32 bits, with a sign. */
    static constexpr std::size_t MAX_LENGTH = std::numeric_limits<std::uint32_t>::digits10 + 2;

    /** Writes a number below 100 as two digits, and returns the position after them. */
    static char* writePair(char* to, unsigned int number) noexcept
    {
        std::memcpy(to, PAIRS + std::size_t(2) * number, 2);
        return to + 2;
    }
    /** Writes the digits of a number so that they end at `end`, and returns their beginning. */
    static char* writeBefore(char* end, std::uint32_t number) noexcept
    {
        while (number >= 100) {
            end -= 2;
            writePair(end, number % 100);
            number /= 100;
        }
        if (number >= 10) {
            end -= 2;
            writePair(end, number);
        } else {
            *--end = static_cast<char>('0' + number);
        }
        return end;
    }
    /** The same, with the sign of a negative number. */
    static char* writeBefore(char* end, std::int32_t number) noexcept
    {
        const auto magnitude = static_cast<std::uint32_t>(number);
        if (number >= 0) {
            return writeBefore(end, magnitude);
        }
        end = writeBefore(end, 0 - magnitude);
        *--end = '-';
        return end;
    }

private:
    static constexpr char PAIRS[] = "00010203040506070809101112131415161718192021222324"
                                    "25262728293031323334353637383940414243444546474849"
                                    "50515253545556575859606162636465666768697071727374"
                                    "75767778798081828384858687888990919293949596979899";
};

}

#endif
