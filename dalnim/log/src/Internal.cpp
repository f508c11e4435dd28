#include <dalnim/dalbase.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/internal/Internal.hpp>

#include <cstdio>
#include <ctime>

namespace com::kor::dal::nim::log {

String toString(int number)
{
    char text[16];
    const int length = std::snprintf(text, sizeof text, "%u", static_cast<unsigned int>(number));
    return String(text, static_cast<std::size_t>(length));
}

String getDateTime(time_t t)
{
    if (t == 0) {
        t = std::time(nullptr);
    }
    std::tm broken_down;
    const char* format;
    // Whoever changes the setting meanwhile gets either form; a torn read does not exist for it.
    if (__atomic_load_n(&LOG_LOCALTIME, __ATOMIC_RELAXED)) {
        sys::System::localtime(broken_down, t);
        format = sys::internal::LOCAL_TIME_FORMAT;
    } else {
        sys::System::utctime(broken_down, t);
        format = sys::internal::UTC_TIME_FORMAT;
    }
    char text[64];
    return String(text, std::strftime(text, sizeof text, format, &broken_down));
}

}
