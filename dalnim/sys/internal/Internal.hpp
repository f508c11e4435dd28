#ifndef DALNIM_SYS_INTERNAL_INTERNAL_HPP
#define DALNIM_SYS_INTERNAL_INTERNAL_HPP

#include <dalnim/String.hpp>
#include <dalnim/sys/internal/nsdefs.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <string_view>

namespace com::kor::dal::nim::sys::internal {

/** @name Date and time of a log record, formats for strftime() */
/** @{ */
/** In local time and in UTC. */
inline constexpr const char LOCAL_TIME_FORMAT[] = "%a %b %d %H:%M:%S %z %Y";
inline constexpr const char UTC_TIME_FORMAT[] = "%a %b %d %H:%M:%S UTC %Y";
/** @} */

/** Initialises the network layer. Does nothing on this platform; returns 0. */
DALNIM_API int net_init();
/** Ends the network layer. Does nothing on this platform; returns 0. */
DALNIM_API int net_fini();

/** Returns the host name without a copy, valid until the process ends. Throws as System::hostname() does. */
std::string_view host_name_text();

/** Returns the name of the executable without a copy, valid until the process ends. Throws as
 * System::getProcessPath() does. */
const String& process_name_text();

/** Throws std::logic_error with `message`, a newline, and the numbered stack trace. */
[[noreturn]] DALNIM_API void throw_null_ref_exception(const char* message);

/**
 * Finds the path in a string, without enclosing white space and quotes, and without trailing separators, "/"
 * and
 * "\".
 *
 * @param offset  receives the offset of the path in the string.
 * @param length  receives the length of the path.
 * @param path    the string; null is an empty string.
 * @param plen    the length of the string; 0 if it ends with a NUL.
 * @return false if the path is empty, as it is for "/".
 */
DALNIM_API bool find_path_substring(std::size_t& offset, std::size_t& length, const char* path,
                                    std::size_t plen) noexcept;

}

#endif
