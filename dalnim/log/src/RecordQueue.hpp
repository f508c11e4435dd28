#ifndef DALNIM_LOG_SRC_RECORDQUEUE_HPP
#define DALNIM_LOG_SRC_RECORDQUEUE_HPP

#include <qv/pmx/types.h>

namespace com::kor::dal::nim::log {

/**
 * The lock that serialises the records of all loggers that do not replace Log::log(). Foreign code runs
 * under it, which may log elsewhere: it is taken before the locks of a Write.
 */
class RecordQueue
{
public:
    RecordQueue() = delete;

    static qv_err_t lock() noexcept;
    static qv_err_t unlock() noexcept;
    /** For the child of a fork, which cannot unlock what its parent has locked. */
    static void renew() noexcept;
};

}

#endif
