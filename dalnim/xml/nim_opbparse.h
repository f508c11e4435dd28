#ifndef DALNIM_XML_NIM_OPBPARSE_H
#define DALNIM_XML_NIM_OPBPARSE_H

#include <qv/pmx/api.h>

#include <stddef.h>

/**
 * @file
 * A push parser for a small subset of XML (https://www.w3.org/TR/xml/), usable from C.
 *
 * The document is pushed into a handle in any number of pieces. The last piece starts the parse, which calls
 * callbacks for start tags, end tags, text and CDATA. The document is edited in place: pointers passed to a
 * callback refer to the handle's memory, and are valid only during the callback.
 *
 * Subset: no namespaces, no encodings, and no entities except `&lt;`, `&gt;`, `&quot;`, `&apos;`, `&amp;` and
 * `&#N;`, where N is decimal and taken modulo 256. Comments, processing instructions and DOCTYPEs are
 * skipped. Bytes above 127 are accepted in text and attribute values, but not in names.
 *
 * Laxer than XML, because existing documents depend on it:
 * - an end tag only has to match the tail of the path of open elements;
 * - a name may start with "!" or "?";
 * - `<a/b="1">` is an element with an attribute;
 * - attributes need no white space between them;
 * - in content, every "<!" that starts neither a comment nor a DOCTYPE starts a CDATA section; the 8 bytes
 *   from the "!" on are skipped unchecked.
 *
 * Stricter than XML: no white space is allowed around the "=" of an attribute.
 *
 * Limits: the complete document is kept in memory until it is parsed, in a buffer that doubles as pieces are
 * appended. Its length and depth, and the number and size of its parts, are limited only by memory. The time
 * of a parse is linear in the length of any document.
 *
 * Thread safety: a handle may be used by one thread at a time; different handles are independent. Exceptions
 * from callbacks propagate through nim_pdsParseBuffer().
 */

QV_BEGIN_C

/** A parser, created by nim_pdsParseInit() and destroyed by nim_pdsParseDestroy(). */
typedef void* PDS_PARSE_H;

/** The type of an event passed to a common callback. */
typedef enum pds_parse_cb_type_e {
    PDS_PARSE_CB_TAG_START = 0,
    PDS_PARSE_CB_TAG_END = 1,
    PDS_PARSE_CB_DATA = 2,
    PDS_PARSE_CB_CDATA = 3
} pds_parse_cb_type_e;

/** @name Flags of nim_pdsParseBuffer() */
/** @{ */
/** This is the last piece of the document: parse now. */
#define PDS_PARSE_F_LAST 1
/** Do not report text that consists of white space. */
#define PDS_PARSE_F_SKIP_WS 2
/** Report an attribute named "NULL" as empty text, before the start of its element. Common callbacks only. */
#define PDS_PARSE_F_NULL_ATTR 4
/** @} */

/** @name Results */
/** @{ */
/** Success. */
#define PDS_PARSE_OK 0
/** The handle is not a parser. */
#define PDS_PARSE_E_BAD_HANDLE 700012001
/** A callback returned a value other than 0. */
#define PDS_PARSE_E_CALLBACK 700012002
/** Syntax error; nim_pdsParseGetErrorInfo() returns the message and the offset. */
#define PDS_PARSE_E_SYNTAX 700012003
/** An earlier call on this handle failed. */
#define PDS_PARSE_E_PREVIOUS 700012004
/** The last piece was already pushed. */
#define PDS_PARSE_E_DONE 700012005
/** nim_pdsParsePushCommonCB() was called outside a start callback, or twice in one. */
#define PDS_PARSE_E_PUSH_CONTEXT 700012006
/** Out of memory. */
#define PDS_PARSE_E_NO_MEMORY 700012900
/** An argument is null. */
#define PDS_PARSE_E_BAD_ARGS 700012901
/** @} */

/**
 * Called for each start tag.
 * @param context       the user data
 * @param tag           the name of the element
 * @param fullTag       the names of the open elements, this one last, joined by "/"
 * @param numAttributes number of entries in `attributes`: two for each attribute
 * @param attributes    name, value, name, value ..., then a null pointer
 * @return 0 to continue; any other value stops the parse. This applies to all callbacks
 */
typedef int (*PDS_PARSE_TAG_ST_FN)(void* context, char* tag, char* fullTag, size_t numAttributes,
                                   char** attributes);
/** Called for each end tag and each empty-element tag. `fullTag` still includes the element. */
typedef int (*PDS_PARSE_TAG_END_FN)(void* context, char* tag, char* fullTag);
/**
 * Called for each run of text between two pieces of markup, with references expanded (`isCData` is 0), and
 * for each CDATA section, verbatim (`isCData` is 1).
 */
typedef int (*PDS_PARSE_DATA_FN)(void* context, int isCData, char* data, char* fullTag);
/**
 * Called for every event. `data` is null for tags. Text is passed with the attributes of the last start tag,
 * which may belong to a child element; end tags and CDATA are passed without attributes.
 */
typedef int (*PDS_PARSE_COMMON_FN)(PDS_PARSE_H handle, pds_parse_cb_type_e type, void* userData,
                                   void* userDataAlt, char* tag, char* fullTag, char* data,
                                   size_t numAttributes, char** attributes);

/**
 * Creates a parser.
 * @param nFlags      ignored
 * @param pUserData   passed to each callback as its context
 * @param fTagStartCb called for start tags
 * @param fTagEndCb   called for end tags
 * @param fDataCb     called for text and CDATA
 * @param fCommonCb   if not null, called for all events instead of the three others, which may then be null
 * @param pReserved2  ignored
 * @param ph          receives the handle, or null if memory runs out; unchanged if an argument is invalid.
 *                    The caller owns the handle and must destroy it
 * @return 0, PDS_PARSE_E_BAD_ARGS or PDS_PARSE_E_NO_MEMORY
 */
DALNIM_API int nim_pdsParseInit(int nFlags, void* pUserData, PDS_PARSE_TAG_ST_FN fTagStartCb,
                                PDS_PARSE_TAG_END_FN fTagEndCb, PDS_PARSE_DATA_FN fDataCb,
                                PDS_PARSE_COMMON_FN fCommonCb, void* pReserved2, PDS_PARSE_H* ph);

/**
 * Appends a piece of the document, which may end anywhere. With PDS_PARSE_F_LAST, parses the document.
 * @param pszData the piece, terminated by a NUL; copied, not modified
 * @param nFlags  PDS_PARSE_F_LAST and the other flags, combined; only those passed with the last piece count
 * @param h       the handle
 * @return 0 or an error. After a failure, the handle can only be reset or destroyed
 */
DALNIM_API int nim_pdsParseBuffer(char* pszData, int nFlags, PDS_PARSE_H h);

/**
 * Prepares the handle for another document, whatever the result of the last one. The allocated memory is
 * reused.
 *
 * If called from a callback of the same handle, it returns 0, and the reset is performed when the parse ends.
 * The parse itself continues and returns its own result; the message of a syntax error is cleared, however.
 * Of several such calls, the last one determines `pUserData`.
 * @param nFlags    ignored
 * @param pUserData passed to each callback as its context
 * @param h         the handle
 * @return 0, PDS_PARSE_E_BAD_ARGS or PDS_PARSE_E_BAD_HANDLE
 */
DALNIM_API int nim_pdsParseReset(int nFlags, void* pUserData, PDS_PARSE_H h);

/**
 * Destroys a parser and sets the handle to null. Must not be called from a callback of the same handle.
 * @return 0, PDS_PARSE_E_BAD_ARGS or PDS_PARSE_E_BAD_HANDLE
 */
DALNIM_API int nim_pdsParseDestroy(PDS_PARSE_H* ph);

/**
 * Replaces the common callback for the content and the end of the current element. Must be called from
 * within a start callback, at most once. The previous callback is restored after the end of the element.
 *
 * A failure other than PDS_PARSE_E_BAD_ARGS also ends the parse when the start callback returns. After a
 * second push in one callback, the parse returns PDS_PARSE_E_PUSH_CONTEXT, whatever the callback returns.
 * After any other failure, the parse returns the same code, or PDS_PARSE_E_CALLBACK if the callback returns a
 * value other than 0.
 * @param fCb          called for all events, even if the handle was created with separate callbacks
 * @param pUserDataAlt passed to `fCb` as its alternate user data
 * @param nFlags       ignored
 * @param h            the handle
 * @return 0, PDS_PARSE_E_PUSH_CONTEXT, PDS_PARSE_E_NO_MEMORY, PDS_PARSE_E_BAD_HANDLE, or PDS_PARSE_E_BAD_ARGS
 * if the callback or the handle is null
 */
DALNIM_API int nim_pdsParsePushCommonCB(PDS_PARSE_COMMON_FN fCb, void* pUserDataAlt, int nFlags,
                                        PDS_PARSE_H h);

/**
 * Returns the message of the last syntax error, "Null ParseHandle" or "Invalid ParseHandle". The message
 * contains the offset in bytes and up to 16 bytes of the document from there. It ends at the first NUL that
 * the parser has written into the document. Owned by the handle; valid until the next call on it.
 */
DALNIM_API const char* nim_pdsParseGetErrorInfo(PDS_PARSE_H h);

/**
 * Returns a description of a detail code: 0 for no error, 1 to 6 for PDS_PARSE_E_BAD_HANDLE to
 * PDS_PARSE_E_PUSH_CONTEXT. Returns null for any other code.
 */
DALNIM_API const char* nim_pdsParseErrorToStr(int nDetailCode);

/** Returns "Error to String function unimplemented" for every code. The buffer is not used. */
DALNIM_API const char* nim_pdsErrorToString(int nErrorCode, char* szBuffer, size_t nBufferSize);

/** Stores a trace level, which is not used. */
DALNIM_API void nim_pdsParseTrcInit(int nSevLevel);

/** Initialises the data that all parsers share. nim_pdsParseInit() calls it. It may be called repeatedly. */
DALNIM_API int ipdsParseInit(void);

QV_END_C

#endif
