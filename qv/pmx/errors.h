#ifndef QV_PMX_ERRORS_H
#define QV_PMX_ERRORS_H

/**
 * @file
 * The common error table: what the numbers of a `qv_err_t` mean.
 *
 * Numbers up to 4095 are `errno` values. Every family of the platform has a block of 256 numbers
 * above them, and enters its messages when the library is loaded.
 */

#include <stddef.h>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/** The numbers of the class library's messages. */
enum qv_rx_error {
    QV_RX_INDEX_RANGE = 51458,       /**< an index beyond the end of a collection */
    QV_RX_CONDITION = 51459,         /**< a precondition does not hold; the argument is its text */
    QV_RX_NO_ELEMENT = 51488,        /**< there is no element here: an empty vector, no current one */
    QV_RX_ITERATOR_END = 51512,      /**< an iterator is used beyond its end */
    QV_RX_SET_CHANGED = 51532,       /**< a set was changed under its iterator */
    QV_RX_STD_EXCEPTION = 51536,     /**< carries the text of a `std::exception` */
    QV_RX_UNKNOWN_EXCEPTION = 51537, /**< stands for an exception of a type that nobody knows */
    QV_RX_BAD_PATTERN = 51538        /**< a pattern that cannot be compiled: why, and the pattern */
};

/** One message. */
typedef struct qv_error_message_t
{
    /** The error number. */
    qv_err_t code;
    /** Its text: constant, without a newline. */
    const char* text;
} qv_error_message_t;

/** The messages of one family, in ascending order of their numbers. */
typedef struct qv_error_table_t
{
    /** The name of the family: constant. */
    const char* family;
    /** The messages, which outlive the table's users: the process. */
    const qv_error_message_t* messages;
    /** How many messages there are. */
    size_t count;
} qv_error_table_t;

/**
 * The text of an error number, without a newline: of an `errno` value the system's, in English, else
 * that of the common error table. Null when the number is unknown. The text is constant; any thread
 * may ask.
 */
DALNIM_API const char* qv_si_strerror(qv_err_t code) QV_NOEXCEPT;

/**
 * Enters a family in the common error table, which keeps the pointer. 0, or ENOSPC when the table of
 * families is full. For load time, when one thread runs.
 */
DALNIM_API qv_err_t qv_si_error_table_add(const qv_error_table_t* table) QV_NOEXCEPT;

/* For every family: whether it was entered, and what enters it. See qv::ErrorTableInitializer. */

/** @name Whether a family was entered */
/** @{ */
/** Not 0 once the messages of this family were entered. */
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

/** @name What enters a family */
/** @{ */
/** Enters the messages of this family; for qv::ErrorTableInitializer alone. */
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
