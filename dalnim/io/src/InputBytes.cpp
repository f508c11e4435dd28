#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/InputBytes.hpp>

#include <dalnim/sys/SysError.hpp>

#include <algorithm>
#include <climits>
#include <streambuf>

namespace com::kor::dal::nim::io {

namespace {

/** Accesses the get area of a stream buffer, for which std::streambuf has only protected members. */
struct GetArea : std::streambuf
{
    static const char* begin(const std::streambuf& buffer)
    {
        return (buffer.*&GetArea::gptr)();
    }
    static const char* end(const std::streambuf& buffer)
    {
        return (buffer.*&GetArea::egptr)();
    }
    static void advance(std::streambuf& buffer, std::size_t count)
    {
        (buffer.*&GetArea::gbump)(static_cast<int>(count));
    }
};

/** The maximum that a get area can be advanced by in one call. */
constexpr std::size_t MAX_READY = INT_MAX;

}

std::string_view InputBytes::peek()
{
    typedef std::istream::traits_type Traits;
    const Traits::int_type next = is.peek();
    if (Traits::eq_int_type(next, Traits::eof())) {
        if (is.bad() || (is.fail() && !is.eof())) {
            throw sys::system_error();
        }
        return std::string_view();
    }

    const std::streambuf& buffer = *is.rdbuf();
    const auto count = static_cast<std::size_t>(GetArea::end(buffer) - GetArea::begin(buffer));
    if (count == 0) {
        single = Traits::to_char_type(next);
        return std::string_view(&single, 1);
    }
    return std::string_view(GetArea::begin(buffer), std::min(count, MAX_READY));
}

void InputBytes::consume(std::size_t count)
{
    std::streambuf& buffer = *is.rdbuf();
    if (GetArea::begin(buffer) != GetArea::end(buffer)) {
        GetArea::advance(buffer, count);
    } else if (count != 0) {
        is.get();
    }
}

}
