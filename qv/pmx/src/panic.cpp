#include <qv/pmx/panic.h>

#include <cstdlib>
#include <cstring>

#include <sys/uio.h>

#include <qv/pmx/src/standard_error.hpp>

namespace {

constexpr size_t MAX_DIGITS = 12;

/** Writes `value` in decimal to the end of `digits`. Returns its first character. */
const char* formatDecimal(int value, char (&digits)[MAX_DIGITS])
{
    char* begin = digits + MAX_DIGITS;
    unsigned int rest =
        value < 0 ? static_cast<unsigned int>(-(value + 1)) + 1U : static_cast<unsigned int>(value);
    do {
        *--begin = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (value < 0) {
        *--begin = '-';
    }
    return begin;
}

iovec piece(const char* text, size_t length)
{
    return {const_cast<char*>(text), length};
}

iovec piece(const char* text)
{
    return piece(text, std::strlen(text));
}

}

void qv_si_panic_internal(const char* path, int line) noexcept
{
    char digits[MAX_DIGITS];
    const char* const number = formatDecimal(line, digits);
    const iovec pieces[] = {
        piece("qv: fatal error at "),
        piece(path != nullptr ? path : "unknown source"),
        piece(":"),
        piece(number, static_cast<size_t>(digits + MAX_DIGITS - number)),
        piece("\n"),
    };
    // A single call, so that the line does not interleave with the output of other threads. Errors are
    // ignored: the process ends in any case.
    const ssize_t written = writev(qv::standardError(), pieces, sizeof pieces / sizeof pieces[0]);
    static_cast<void>(written);
    std::abort();
}
