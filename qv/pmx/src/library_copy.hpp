#ifndef QV_PMX_SRC_LIBRARY_COPY_HPP
#define QV_PMX_SRC_LIBRARY_COPY_HPP

#include <string>

/**
 * Finds plug-ins that bring a second copy of this library into the process: they were linked with the static
 * library, or with another file of the shared one. Such a plug-in would use a log, a loader and thread states
 * of its own.
 *
 * A copy is recognised by a note in its program header, which the source init.cpp contains and each program
 * or library that uses a class of this library is linked with. Unlike a symbol, it is found whatever the
 * visibility of symbols and the scope of the load.
 */
namespace qv {

/**
 * Returns true if the file of a library contains a copy of this library. Returns false if the file cannot be
 * read, which the dynamic linker then reports.
 */
bool fileHasLibraryCopy(const char* path) noexcept;

/**
 * Returns the path of the module that contains a copy of this library other than this one, among a loaded
 * library and those that it depends on; empty if there is none.
 * @throws std::bad_alloc
 */
std::string findLibraryCopy(void* library);

}

#endif
