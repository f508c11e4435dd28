#ifndef QV_PMX_HOST_H
#define QV_PMX_HOST_H

/**
 * @file
 * The process and its host.
 */

#include <stddef.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

struct addrinfo;

/** Returns the process ID; in the child of a `fork`, that of the child. */
DALNIM_API pid_t qv_si_getpid(void) QV_NOEXCEPT;

/**
 * Writes the host name with its terminator to `name`.
 *
 * @param size  size of `name`, in bytes
 * @return 0, or ENAMETOOLONG (36) or EINVAL (22) if the name does not fit
 */
DALNIM_API qv_err_t qv_si_gethostname(char* name, size_t size) QV_NOEXCEPT;

/** Calls `getaddrinfo`. Returns 0 or an `EAI_` error. */
DALNIM_API int qv_si_getaddrinfo(const char* node, const char* service, const struct addrinfo* hints,
                                 struct addrinfo** result);

/** Calls `getnameinfo`. Returns 0 or an `EAI_` error. */
DALNIM_API int qv_si_getnameinfo(const struct sockaddr* address, socklen_t address_size, char* host,
                                 socklen_t host_size, char* service, socklen_t service_size, int flags);

/** Calls `freeaddrinfo` unless `list` is null. */
DALNIM_API void qv_si_freeaddrinfo(struct addrinfo* list) QV_NOEXCEPT;

QV_END_C

#endif
