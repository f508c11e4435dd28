#ifndef QV_PMX_THREAD_SAFETY_H
#define QV_PMX_THREAD_SAFETY_H

/**
 * @file
 * Macros that declare to the compiler which lock guards a variable, and which locks a function acquires,
 * releases or requires.
 *
 * They have an effect only in the check of the library's own sources, which defines `DALNIM_CHECK_LOCKS` and
 * compiles with clang and `-Wthread-safety`. For all other compilations they are empty.
 *
 * A lock is an expression that names an object of a class with DALNIM_CAPABILITY. A function without
 * arguments acquires, releases or requires the object that it is called for. The analysis compares
 * expressions, not objects: if a lock has two names, a function that returns it is declared with
 * DALNIM_RETURN_CAPABILITY.
 */

#if defined(DALNIM_CHECK_LOCKS) && defined(__clang__)
#define DALNIM_LOCK_ATTRIBUTE(attribute) __attribute__((attribute))
#else
/** An attribute of the analysis, or nothing; for the macros below. */
#define DALNIM_LOCK_ATTRIBUTE(attribute)
#endif

/** Declares that a class is a lock; `kind` is its name in diagnostics. */
#define DALNIM_CAPABILITY(kind) DALNIM_LOCK_ATTRIBUTE(capability(kind))
/** Declares that a class holds locks from its constructor, or from a later member function, to its
 * destructor. */
#define DALNIM_SCOPED_CAPABILITY DALNIM_LOCK_ATTRIBUTE(scoped_lockable)

/** Declares the lock that guards a variable. */
#define DALNIM_GUARDED_BY(lock) DALNIM_LOCK_ATTRIBUTE(guarded_by(lock))
/** Declares the lock that guards the object to which a pointer points. */
#define DALNIM_PT_GUARDED_BY(lock) DALNIM_LOCK_ATTRIBUTE(pt_guarded_by(lock))

/** Declares that the caller must hold the locks exclusively. */
#define DALNIM_REQUIRES(...) DALNIM_LOCK_ATTRIBUTE(requires_capability(__VA_ARGS__))
/** Declares that the caller must hold the locks, exclusively or shared. */
#define DALNIM_REQUIRES_SHARED(...) DALNIM_LOCK_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
/** Declares that the caller must not hold the locks, because the function acquires them. */
#define DALNIM_EXCLUDES(...) DALNIM_LOCK_ATTRIBUTE(locks_excluded(__VA_ARGS__))

/** Declares that a function acquires the locks exclusively. */
#define DALNIM_ACQUIRE(...) DALNIM_LOCK_ATTRIBUTE(acquire_capability(__VA_ARGS__))
/** Declares that a function acquires the locks shared. */
#define DALNIM_ACQUIRE_SHARED(...) DALNIM_LOCK_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
/** Declares that a function acquires a lock exclusively if it returns the first argument. */
#define DALNIM_TRY_ACQUIRE(...) DALNIM_LOCK_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
/** Declares that a function acquires a lock shared if it returns the first argument. */
#define DALNIM_TRY_ACQUIRE_SHARED(...) DALNIM_LOCK_ATTRIBUTE(try_acquire_shared_capability(__VA_ARGS__))
/** Declares that a function releases the locks, which the caller holds exclusively. */
#define DALNIM_RELEASE(...) DALNIM_LOCK_ATTRIBUTE(release_capability(__VA_ARGS__))
/** Declares that a function releases the locks, which the caller holds shared. */
#define DALNIM_RELEASE_SHARED(...) DALNIM_LOCK_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
/** Declares that a function releases the locks, which the caller holds exclusively or shared. */
#define DALNIM_RELEASE_GENERIC(...) DALNIM_LOCK_ATTRIBUTE(release_generic_capability(__VA_ARGS__))

/** Declares the lock to which a function returns a reference or a pointer. */
#define DALNIM_RETURN_CAPABILITY(lock) DALNIM_LOCK_ATTRIBUTE(lock_returned(lock))

/**
 * Excludes the body of a function from the analysis, which cannot follow it; callers are still checked. Each
 * use has a comment with the reason, and is listed for the test `lint.locks`.
 */
#define DALNIM_NO_LOCK_ANALYSIS DALNIM_LOCK_ATTRIBUTE(no_thread_safety_analysis)

#endif
