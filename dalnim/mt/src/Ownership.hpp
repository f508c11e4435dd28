#ifndef DALNIM_MT_SRC_OWNERSHIP_HPP
#define DALNIM_MT_SRC_OWNERSHIP_HPP

namespace com::kor::dal::nim::mt {

class Runnable;

/** How a task, a thread or a pool owns a runnable: not at all, as its only owner, or by a reference. */
enum class Ownership : unsigned char { NONE, OWNED, COUNTED };

/** Becomes an owner of a runnable. If it is reference-counted, acquires a reference and returns COUNTED. */
Ownership acquireOwnership(const Runnable& runnable);

/** Undoes acquireOwnership(), without destroying the runnable: its former owner keeps it. */
void undoOwnership(const Runnable& runnable, Ownership ownership);

/** Returns what acquireOwnership() has returned for the runnable. */
Ownership ownershipOf(const Runnable& runnable);

/** Returns true if the runnable ends with this ownership: it is OWNED, or the reference is the only one. */
bool isSoleOwner(const Runnable& runnable, Ownership ownership);

/**
 * Ends an ownership: releases a COUNTED runnable, deletes an OWNED one. An exception of its destructor is
 * logged under the library's module with severity WARNING: `message`, then the exception. Only a forced
 * unwinding leaves this function.
 */
void endOwnership(Runnable* runnable, Ownership ownership, const char* message);

}

#endif
