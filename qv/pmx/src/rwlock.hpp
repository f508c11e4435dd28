#ifndef QV_PMX_SRC_RWLOCK_HPP
#define QV_PMX_SRC_RWLOCK_HPP

#include <qv/pmx/rwlock.h>

namespace qv {

/**
 * Frees a lock although it is held, if its owner cannot be prevented from being destroyed; the record is at
 * rest afterwards. A lock for which threads wait stays allocated: they use it.
 */
void abandon(si_rwlock_t& lock) noexcept;

}

#endif
