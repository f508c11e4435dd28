#ifndef DALNIM_MT_SRC_TASKNAME_HPP
#define DALNIM_MT_SRC_TASKNAME_HPP

#include <dalnim/Primitives.hpp>
#include <qv/rtlapi/RX_String.hpp>

namespace com::kor::dal::nim::mt {

/** Returns the name of a task, a thread or a pool: `name` unchanged or, if null, `label` followed by `id`. */
RX_String makeTaskName(const char* name, const char* label, TaskID_t id);

}

#endif
