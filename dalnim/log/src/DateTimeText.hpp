#ifndef DALNIM_LOG_SRC_DATETIMETEXT_HPP
#define DALNIM_LOG_SRC_DATETIMETEXT_HPP

#include <cstddef>
#include <ctime>
#include <string_view>

namespace com::kor::dal::nim::log {

/** The date and time of a record; see getDateTime(). */
class DateTimeText
{
public:
    explicit DateTimeText(std::time_t t);

    std::string_view view() const noexcept
    {
        return {text, length};
    }

private:
    char text[64];
    std::size_t length;
};

}

#endif
