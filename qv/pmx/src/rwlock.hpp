#ifndef QV_PMX_SRC_RWLOCK_HPP
#define QV_PMX_SRC_RWLOCK_HPP

#include <qv/pmx/rwlock.h>

namespace qv {

/**
 * Destroys a lock although it is held, because the object that contains it is being destroyed. The record is
 * uninitialised afterwards. If threads wait for the lock, its memory is leaked, since they use it.
 */
void abandon(si_rwlock_t& lock) noexcept;

}

#endif
