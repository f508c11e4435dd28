#include <dalnim/dalbase.hpp>

#include <dalnim/sys/SysError.hpp>

#include <qv/pmx/errors.h>

#include <cctype>
#include <cerrno>
#include <cstring>

namespace com::kor::dal::nim::sys {

namespace {

/** Returns where to truncate a message that must end at `pos`. This is the place to respect UTF-8 characters.
 */
std::size_t si_i18n_get_UTF8_char_end(const char*, std::size_t pos)
{
    return pos;
}

}

int sys_err_num() noexcept
{
    return errno;
}

String sys_err_string(int sys_err_num)
{
    const char* text = qv_si_strerror(sys_err_num);
    if (text == nullptr) {
        return "Unknown error " + std::to_string(sys_err_num);
    }
    char buffer[1024];
    std::size_t length = std::strlen(text);
    std::memcpy(buffer, text, length < sizeof buffer ? length : sizeof buffer);
    if (length > sizeof buffer - 1) {
        length = si_i18n_get_UTF8_char_end(buffer, sizeof buffer - 1);
    }
    while (length > 0 && std::isspace(static_cast<unsigned char>(buffer[length - 1]))) {
        --length;
    }
    return String(buffer, length);
}

String sys_err_string(unsigned int sys_err_num)
{
    return sys_err_string(static_cast<int>(sys_err_num));
}

String sys_err_string()
{
    return sys_err_string(errno);
}

}
