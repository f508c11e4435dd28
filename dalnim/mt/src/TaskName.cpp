#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TaskName.hpp>

#include <qv/rtlapi/RX_fmt.hpp>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

RX_String makeTaskName(const char* name, const char* label, TaskID_t id)
{
    if (name != nullptr) {
        return RX_String(name, RX_String::NPOS);
    }
    RX_String text(label, RX_String::NPOS);
    text += RX_fmt(id);
    return text;
}

}
