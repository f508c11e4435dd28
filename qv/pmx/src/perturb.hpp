#ifndef QV_PMX_SRC_PERTURB_HPP
#define QV_PMX_SRC_PERTURB_HPP

namespace qv {

/**
 * A perturbation point: placed around each lock, and between two reads of a value that threads share. Does
 * nothing unless compiled with DALNIM_PERTURB. There it randomly yields or sleeps for some microseconds, so
 * that tests see more interleavings than the scheduler would produce. The environment variable
 * DALNIM_PERTURB_SEED is the seed.
 */
#ifdef DALNIM_PERTURB
void perturb() noexcept;
#else
inline void perturb() noexcept {}
#endif

}

#endif
