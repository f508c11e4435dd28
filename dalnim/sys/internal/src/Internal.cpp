#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/Internal.hpp>

#include <dalnim/sys/StackTrace.hpp>

#include <sstream>
#include <stdexcept>
#include <string_view>

namespace com::kor::dal::nim::sys::internal {

namespace {

// Independent of the locale: a single-byte locale would take some bytes of a UTF-8 name for spaces.
constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";
constexpr std::string_view QUOTES = "\"'";
constexpr std::string_view SEPARATORS = "\\/";

std::size_t run_at_front(std::string_view text, std::string_view set)
{
    const std::size_t end = text.find_first_not_of(set);
    return end == std::string_view::npos ? text.size() : end;
}

std::string_view without_run_at_end(std::string_view text, std::string_view set)
{
    const std::size_t last = text.find_last_not_of(set);
    return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

}

int net_init()
{
    return 0;
}

int net_fini()
{
    return 0;
}

void throw_null_ref_exception(const char* message)
{
    std::ostringstream text;
    text.exceptions(std::ios_base::badbit);
    if (message != nullptr) {
        text << message;
    }
    text << '\n' << StackTrace();
    throw std::logic_error(text.str());
}

bool find_path_substring(std::size_t& offset, std::size_t& length, const char* path,
                         std::size_t plen) noexcept
{
    offset = 0;
    length = 0;
    if (path == nullptr) {
        return false;
    }

    std::string_view text = plen != 0 ? std::string_view(path, plen) : std::string_view(path);
    offset = run_at_front(text, WHITE_SPACE);
    offset += run_at_front(text.substr(offset), QUOTES);

    text.remove_prefix(offset);
    text = without_run_at_end(text, WHITE_SPACE);
    text = without_run_at_end(text, QUOTES);
    text = without_run_at_end(text, SEPARATORS);

    length = text.size();
    return length != 0;
}

}
