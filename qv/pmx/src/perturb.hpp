#ifndef QV_PMX_SRC_PERTURB_HPP
#define QV_PMX_SRC_PERTURB_HPP

namespace qv {

/**
 * A point at which another thread may come in between: around each lock, and between two looks at a value
 * that threads share. Nothing, but for a build with DALNIM_PERTURB: there the thread gives its turn away or
 * sleeps for some microseconds, at random, so that a test sees more orders of events than the scheduler
 * would give it. DALNIM_PERTURB_SEED in the environment is the seed.
 */
#ifdef DALNIM_PERTURB
void perturb() noexcept;
#else
inline void perturb() noexcept {}
#endif

}

#endif
