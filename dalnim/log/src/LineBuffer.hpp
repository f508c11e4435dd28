#ifndef DALNIM_LOG_SRC_LINEBUFFER_HPP
#define DALNIM_LOG_SRC_LINEBUFFER_HPP

#include <charconv>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>

namespace com::kor::dal::nim::log {

/** A buffer in which a line is assembled. A line of the usual length needs no memory other than its own. */
class LineBuffer
{
public:
    LineBuffer() : begin(inlineBytes), length(0), capacity(sizeof inlineBytes) {}

    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;

    std::string_view view() const noexcept
    {
        return {begin, length};
    }

    LineBuffer& append(std::string_view text)
    {
        if (text.empty()) {
            return *this;
        }
        reserve(text.size());
        std::memcpy(begin + length, text.data(), text.size());
        length += text.size();
        return *this;
    }
    LineBuffer& append(char c)
    {
        reserve(1);
        begin[length++] = c;
        return *this;
    }
    /** Calls `write` with memory of `bound` bytes, and appends as many of them as it returns. */
    template <class Write>
    void appendWith(std::size_t bound, Write write)
    {
        reserve(bound);
        length += write(begin + length);
    }
    /** Appends plain decimal digits; a stream would group them as the global locale demands. */
    template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
    LineBuffer& appendNumber(Number number)
    {
        constexpr std::size_t LONGEST = std::numeric_limits<Number>::digits10 + 2;
        reserve(LONGEST);
        char* const at = begin + length;
        length += static_cast<std::size_t>(std::to_chars(at, at + LONGEST, number).ptr - at);
        return *this;
    }
    void truncate(std::size_t newLength) noexcept
    {
        length = newLength;
    }

private:
    void reserve(std::size_t added)
    {
        if (added > capacity - length) {
            grow(added);
        }
    }
    void grow(std::size_t added)
    {
        const std::size_t size = 2 * (length + added);
        std::unique_ptr<char[]> larger(new char[size]);
        std::memcpy(larger.get(), begin, length);
        heapBytes = std::move(larger);
        begin = heapBytes.get();
        capacity = size;
    }

    char inlineBytes[1024];
    std::unique_ptr<char[]> heapBytes;
    char* begin;
    std::size_t length;
    std::size_t capacity;
};

}

#endif
