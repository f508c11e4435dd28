#ifndef DALNIM_DALBASE_HPP
#define DALNIM_DALBASE_HPP

/**
 * @file
 * Included first by every source file of the library.
 *
 * It defines objects that initialise the runtime layer when the library is loaded, before any of its code can
 * be called. Those of the first source file do the work: an error table registers its messages once per
 * process, and the other objects only check a flag.
 *
 * It also declares the module of the library's own log statements.
 */

#include <dalnim/log/LibraryModule.hpp>
#include <qv/pmx/errors.h>
#include <qv/pmx/init.h>

// One set of objects for each source file.
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

// The library cannot work without the system interface: a failure terminates the process.
const qv::SystemInterfaceInitializer si_init_initializer("dalnim/dalbase.hpp", __LINE__);

}

#include <iostream>

/** Registers the error tables of the class library. For sources that use it, after the includes. */
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

/** Registers the error tables of path resolution. Used likewise. */
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
