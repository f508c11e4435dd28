#ifndef DALNIM_SYS_SRC_LOADERRELEASE_HPP
#define DALNIM_SYS_SRC_LOADERRELEASE_HPP

#include <dalnim/sys/DynLoaderMgr.hpp>
#include <qv/pmx/src/perturb.hpp>

namespace com::kor::dal::nim::sys {

/**
 * Without the lock, a count is decremented only to 2 or more, by releaseRefAbove(1). From 2 to 1 and from 1
 * to 0 it is decremented only here, with the lock held. Therefore:
 *
 * - A count of 1 before the decrement is the caller's own reference to an object that the cache does not
 *   hold. The decrement destroys it, and nothing may touch it afterwards.
 * - Otherwise the count is 2 or more until the decrement, however many references other threads release
 *   concurrently, and the object exists for as long as the lock is held.
 * - Whichever release brings the count to 1 sees that below: a count read before the decrement may have been
 *   lowered since. References from the cache are made with the lock held, so the count stays 1.
 *
 * The counts are read relaxed. Each decrement to 1 happens before the lock is acquired again, and a thread
 * always sees its own decrement or a later value.
 */
template <class T, class ReleaseOne>
bool DynLoaderMgr::release(const T& object, ReleaseOne releaseOne) const
{
    // The lock outlives the object: the manager is never destroyed.
    const Holder holder(sync.acquire());
    const bool isLast = object.refCount(true) <= 1;
    qv::perturb();
    const bool released = releaseOne();
    return isLast ? released : removeUnused(object) && released;
}

}

#endif
