#ifndef DALNIM_DALBASE_HPP
#define DALNIM_DALBASE_HPP

/**
 * @file
 * The base of every source file of the library, included first by each of them.
 *
 * It plants the objects that prepare the runtime layer when the library is loaded, before any of
 * its code can be called. Whichever file comes first does the work: an error table enters its
 * messages once per process, and every later object is one test of a flag.
 *
 * And it names the module of the library's own log statements.
 */

#include <dalnim/log/LibraryModule.hpp>
#include <qv/pmx/errors.h>
#include <qv/pmx/init.h>

// Each source file has objects of its own.
namespace { // NOLINT(cert-dcl59-cpp)

const qv::ErrorTableInitializer RTLD_error_table_initializer(_qv_RTLD_error_table_initializer_done,
                                                             _qv_RTLD_error_table_init);
const qv::ErrorTableInitializer DNS_error_table_initializer(_qv_DNS_error_table_initializer_done,
                                                            _qv_DNS_error_table_init);
const qv::ErrorTableInitializer PIPE_error_table_initializer(_qv_PIPE_error_table_initializer_done,
                                                             _qv_PIPE_error_table_init);
const qv::ErrorTableInitializer BNUM_error_table_initializer(_qv_BNUM_error_table_initializer_done,
                                                             _qv_BNUM_error_table_init);
const qv::ErrorTableInitializer CRPT_error_table_initializer(_qv_CRPT_error_table_initializer_done,
                                                             _qv_CRPT_error_table_init);

// Nothing can work without the system interface: a failure here ends the process.
const qv::SystemInterfaceInitializer si_init_initializer("dalnim/dalbase.hpp", __LINE__);

}

#include <iostream>

/** The tables of the class library, for the sources that use it: planted behind the includes. */
#define DALNIM_USES_RTLAPI                                                                                   \
    namespace {                                                                                              \
    const qv::ErrorTableInitializer RX_error_table_initializer(_qv_RX_error_table_initializer_done,          \
                                                               _qv_RX_error_table_init);                     \
    const qv::ErrorTableInitializer UCNF_error_table_initializer(_qv_UCNF_error_table_initializer_done,      \
                                                                 _qv_UCNF_error_table_init);                 \
    const qv::ErrorTableInitializer AUTH_error_table_initializer(_qv_AUTH_error_table_initializer_done,      \
                                                                 _qv_AUTH_error_table_init);                 \
    const qv::ErrorTableInitializer MAPP_error_table_initializer(_qv_MAPP_error_table_initializer_done,      \
                                                                 _qv_MAPP_error_table_init);                 \
    }

/** The further tables of path resolution, in the same way. */
#define DALNIM_USES_PATH_TABLES                                                                              \
    namespace {                                                                                              \
    const qv::ErrorTableInitializer MISC_error_table_initializer(_qv_MISC_error_table_initializer_done,      \
                                                                 _qv_MISC_error_table_init);                 \
    const qv::ErrorTableInitializer JVMI_error_table_initializer(_qv_JVMI_error_table_initializer_done,      \
                                                                 _qv_JVMI_error_table_init);                 \
    const qv::ErrorTableInitializer SGNL_error_table_initializer(_qv_SGNL_error_table_initializer_done,      \
                                                                 _qv_SGNL_error_table_init);                 \
    }

#endif
