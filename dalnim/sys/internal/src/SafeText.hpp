#ifndef DALNIM_SYS_INTERNAL_SRC_SAFETEXT_HPP
#define DALNIM_SYS_INTERNAL_SRC_SAFETEXT_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace com::kor::dal::nim::sys::internal {

/**
 * A text in memory of the caller's. Text that does not fit is dropped. No operation allocates, locks or uses
 * the locale: all of them may be called in signal handlers.
 */
class SafeText
{
public:
    /** @param size  capacity in bytes; there is no terminator */
    SafeText(char* memory, std::size_t size) noexcept : text(memory), capacity(size) {}

    SafeText(const SafeText&) = delete;
    SafeText& operator=(const SafeText&) = delete;

    SafeText& operator<<(std::string_view part) noexcept
    {
        const std::size_t count = std::min(part.size(), capacity - length);
        isCut = isCut || count < part.size();
        std::memcpy(text + length, part.data(), count);
        length += count;
        return *this;
    }
    SafeText& operator<<(const char* part) noexcept
    {
        return *this << std::string_view(part);
    }
    SafeText& operator<<(char letter) noexcept
    {
        return *this << std::string_view(&letter, 1);
    }
    SafeText& operator<<(std::uint64_t number) noexcept
    {
        return inBase(number, 10);
    }
    SafeText& operator<<(std::uint32_t number) noexcept
    {
        return *this << std::uint64_t(number);
    }
    SafeText& operator<<(std::int64_t number) noexcept
    {
        if (number < 0) {
            *this << '-';
            return inBase(std::uint64_t(0) - static_cast<std::uint64_t>(number), 10);
        }
        return inBase(static_cast<std::uint64_t>(number), 10);
    }
    SafeText& operator<<(std::int32_t number) noexcept
    {
        return *this << std::int64_t(number);
    }
    /** Appends a number as "0x" and hexadecimal digits. */
    SafeText& hex(std::uint64_t number) noexcept
    {
        *this << "0x";
        return inBase(number, 16);
    }
    /** Appends a number of two digits. */
    SafeText& pair(std::uint32_t number) noexcept
    {
        return *this << static_cast<char>('0' + number / 10 % 10) << static_cast<char>('0' + number % 10);
    }

    std::string_view view() const noexcept
    {
        return {text, length};
    }
    std::size_t size() const noexcept
    {
        return length;
    }
    /** Returns true if a part did not fit. */
    bool isTruncated() const noexcept
    {
        return isCut;
    }
    /** Removes everything after the first `size` bytes. */
    void truncate(std::size_t size) noexcept
    {
        length = size;
    }

private:
    SafeText& inBase(std::uint64_t number, unsigned int base) noexcept
    {
        constexpr std::size_t MOST_DIGITS = 20;
        char digits[MOST_DIGITS];
        std::size_t begin = MOST_DIGITS;
        do {
            digits[--begin] = "0123456789abcdef"[number % base];
            number /= base;
        } while (number != 0);
        return *this << std::string_view(digits + begin, MOST_DIGITS - begin);
    }

    char* const text;
    const std::size_t capacity;
    std::size_t length = 0;
    bool isCut = false;
};

}

#endif
