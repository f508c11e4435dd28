#ifndef QV_PMX_SRC_PROCESSOR_HPP
#define QV_PMX_SRC_PROCESSOR_HPP

/**
 * @file
 * The processor that the library is compiled for. Code with a form of its own for a processor asks the macros
 * here, and has another form that compiles for every processor.
 *
 * Tests define QV_ANY_PROCESSOR, which selects the form for every processor.
 */

#if defined(__x86_64__) && !defined(QV_ANY_PROCESSOR)
#define QV_IS_X86_64 1
#else
#define QV_IS_X86_64 0
#endif

/** Little-endian, as every system on ARM64 that the library was tried on: the order of vector lanes differs.
 */
#if defined(__aarch64__) && defined(__ARM_NEON) && !defined(__AARCH64EB__) && !defined(QV_ANY_PROCESSOR)
#define QV_IS_ARM64 1
#else
#define QV_IS_ARM64 0
#endif

namespace qv {

/** Slows down a loop that polls memory, in favour of the other threads of the processor core. */
inline void pausePolling() noexcept
{
#if QV_IS_X86_64
    __builtin_ia32_pause();
#elif QV_IS_ARM64
    // YIELD has no effect on most processors. ISB takes about as long as PAUSE does on x86-64, so that loops
    // with a fixed number of polls take about as long, too.
    __asm__ volatile("isb" ::: "memory");
#else
    __asm__ volatile("" ::: "memory");
#endif
}

}

#endif
