#ifndef DALNIM_SYS_INTERNAL_INTERNAL_HPP
#define DALNIM_SYS_INTERNAL_INTERNAL_HPP

#include <dalnim/String.hpp>
#include <dalnim/sys/internal/nsdefs.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <string_view>

namespace com::kor::dal::nim::sys::internal {

/** The date and time of a record, for strftime(), in local time and in UTC. */
inline constexpr const char LOCAL_TIME_FORMAT[] = "%a %b %d %H:%M:%S %z %Y";
/** The same in UTC. */
inline constexpr const char UTC_TIME_FORMAT[] = "%a %b %d %H:%M:%S UTC %Y";

/** Where a platform that needs it starts and ends its network layer. Nothing here; always 0. */
DALNIM_API int net_init();
/** Where a platform that needs it ends its network layer. Nothing here; always 0. */
DALNIM_API int net_fini();

/** What System::hostname() copies, for the life of the process; fails as it does. */
std::string_view host_name_text();

/** What System::getProcessPath(EXECUTABLE_NAME_ONLY) copies, likewise. */
const String& process_name_text();

/** Throws std::logic_error with `message`, a newline, and the numbered trace of the open tracks. */
[[noreturn]] DALNIM_API void throw_null_ref_exception(const char* message);

/**
 * Finds the meaningful part of a path text: what is left without the white space and the quotes
 * around it and the separators, "/" and "\", at its end.
 *
 * @param offset  receives where the part begins in `path`.
 * @param length  receives how long it is.
 * @param path    the text; a null pointer has no part at offset 0.
 * @param plen    the length of `path`; 0 for a text that ends at its zero byte.
 * @return whether anything is left, which it is not of "/".
 */
DALNIM_API bool find_path_substring(std::size_t& offset, std::size_t& length, const char* path,
                                    std::size_t plen) noexcept;

}

#endif
