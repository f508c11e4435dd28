#ifndef DALNIM_MT_SRC_TASKNAME_HPP
#define DALNIM_MT_SRC_TASKNAME_HPP

#include <dalnim/Primitives.hpp>
#include <qv/rtlapi/RX_String.hpp>

namespace com::kor::dal::nim::mt {

/**
 * Returns the name of a task, a thread or a pool: `name` unchanged or, if null, `label` followed by `id`.
 * Short names are in blocks of BlockAllocator.
 */
RX_String makeTaskName(const char* name, const char* label, TaskID_t id);
/** Deallocates the block of a name of makeTaskName() that is not shared, and makes it empty. */
void releaseTaskName(RX_String& name) noexcept;

}

#endif
