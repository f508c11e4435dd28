#ifndef QV_PMX_ERRORS_H
#define QV_PMX_ERRORS_H

/**
 * @file
 * The common error table: the messages of `qv_err_t` values.
 *
 * Values up to 4095 are `errno` values. Above them, each family of the platform has a block of 256 error
 * numbers, and registers their messages when the library is loaded.
 */

#include <stddef.h>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/** Error numbers of the class library. */
enum qv_rx_error {
    QV_RX_INDEX_RANGE = 51458,       /**< an index past the end of a collection */
    QV_RX_CONDITION = 51459,         /**< a precondition is violated; the argument is the condition */
    QV_RX_NO_ELEMENT = 51488,        /**< no such element: an empty vector, or no current element */
    QV_RX_ITERATOR_END = 51512,      /**< an iterator is used past its end */
    QV_RX_SET_CHANGED = 51532,       /**< a set was modified during an iteration */
    QV_RX_STD_EXCEPTION = 51536,     /**< a `std::exception`; the argument is its message */
    QV_RX_UNKNOWN_EXCEPTION = 51537, /**< an exception of an unknown type */
    QV_RX_BAD_PATTERN = 51538        /**< a malformed pattern; the arguments are the reason and the pattern */
};

/** One message. */
typedef struct qv_error_message_t
{
    /** The error number. */
    qv_err_t code;
    /** The message, without a newline. Must remain valid for the life of the process. */
    const char* text;
} qv_error_message_t;

/** The messages of one family. */
typedef struct qv_error_table_t
{
    /** The name of the family. Must remain valid for the life of the process. */
    const char* family;
    /** The messages, sorted by error number. Must remain valid for the life of the process. */
    const qv_error_message_t* messages;
    /** The number of messages. */
    size_t count;
} qv_error_table_t;

/**
 * Returns the message of an error number, without a newline: the system's, in English, for an `errno` value,
 * otherwise that of the common error table. Returns null for an unknown number. The string is static. Any
 * thread may call this.
 */
DALNIM_API const char* qv_si_strerror(qv_err_t code) QV_NOEXCEPT;

/**
 * Registers a family in the common error table. Not thread-safe: call it only while the library is loaded.
 *
 * @param table  not copied; must remain valid for the life of the process
 * @return 0, EINVAL (22) if `table` is null, or ENOSPC (28) if there are too many families
 */
DALNIM_API qv_err_t qv_si_error_table_add(const qv_error_table_t* table) QV_NOEXCEPT;

/* For each family: a flag and an init function. See qv::ErrorTableInitializer. */

/** @name Flags: the family is registered */
/** @{ */
/** Not 0 after the messages of this family have been registered. */
DALNIM_API extern int _qv_RTLD_error_table_initializer_done;
DALNIM_API extern int _qv_DNS_error_table_initializer_done;
DALNIM_API extern int _qv_PIPE_error_table_initializer_done;
DALNIM_API extern int _qv_BNUM_error_table_initializer_done;
DALNIM_API extern int _qv_CRPT_error_table_initializer_done;
DALNIM_API extern int _qv_RX_error_table_initializer_done;
DALNIM_API extern int _qv_UCNF_error_table_initializer_done;
DALNIM_API extern int _qv_AUTH_error_table_initializer_done;
DALNIM_API extern int _qv_MAPP_error_table_initializer_done;
DALNIM_API extern int _qv_MISC_error_table_initializer_done;
DALNIM_API extern int _qv_JVMI_error_table_initializer_done;
DALNIM_API extern int _qv_SGNL_error_table_initializer_done;
/** @} */

/** @name Registration of a family */
/** @{ */
/** Registers the messages of this family. Called only by qv::ErrorTableInitializer. */
DALNIM_API void _qv_RTLD_error_table_init(void);
DALNIM_API void _qv_DNS_error_table_init(void);
DALNIM_API void _qv_PIPE_error_table_init(void);
DALNIM_API void _qv_BNUM_error_table_init(void);
DALNIM_API void _qv_CRPT_error_table_init(void);
DALNIM_API void _qv_RX_error_table_init(void);
DALNIM_API void _qv_UCNF_error_table_init(void);
DALNIM_API void _qv_AUTH_error_table_init(void);
DALNIM_API void _qv_MAPP_error_table_init(void);
DALNIM_API void _qv_MISC_error_table_init(void);
DALNIM_API void _qv_JVMI_error_table_init(void);
DALNIM_API void _qv_SGNL_error_table_init(void);
/** @} */

QV_END_C

#endif
