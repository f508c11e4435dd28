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

/** The number of the process; in the child of a `fork` the child's. */
DALNIM_API pid_t qv_si_getpid(void) QV_NOEXCEPT;

/** The host's name with its terminator. ENAMETOOLONG, EINVAL when it does not fit into `size`. */
DALNIM_API qv_err_t qv_si_gethostname(char* name, size_t size) QV_NOEXCEPT;

/** As `getaddrinfo`: 0 or an `EAI_` number. */
DALNIM_API int qv_si_getaddrinfo(const char* node, const char* service, const struct addrinfo* hints,
                                 struct addrinfo** result);

/** As `getnameinfo`: 0 or an `EAI_` number. */
DALNIM_API int qv_si_getnameinfo(const struct sockaddr* address, socklen_t address_size, char* host,
                                 socklen_t host_size, char* service, socklen_t service_size, int flags);

/** As `freeaddrinfo`; accepts null. */
DALNIM_API void qv_si_freeaddrinfo(struct addrinfo* list) QV_NOEXCEPT;

QV_END_C

#endif
