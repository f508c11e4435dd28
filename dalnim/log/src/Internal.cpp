#include <dalnim/dalbase.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/log/src/DateTimeText.hpp>

#include <cstdio>

namespace com::kor::dal::nim::log {

String toString(int number)
{
    char text[16];
    const int length = std::snprintf(text, sizeof text, "%u", static_cast<unsigned int>(number));
    return String(text, static_cast<std::size_t>(length));
}

String getDateTime(time_t t)
{
    return String(DateTimeText(t).view());
}

}
