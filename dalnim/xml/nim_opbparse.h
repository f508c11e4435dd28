#ifndef DALNIM_XML_NIM_OPBPARSE_H
#define DALNIM_XML_NIM_OPBPARSE_H

#include <qv/pmx/api.h>

#include <stddef.h>

/**
 * @file
 * A push parser for a small subset of XML (https://www.w3.org/TR/xml/), usable from C.
 *
 * Text is pushed into a handle in any number of pieces; the last one starts the parse, which calls
 * back for start tags, end tags, text and CDATA. The document is edited in place: what a callback is
 * given points into the handle and is valid during the callback only.
 *
 * The subset has no namespaces, no encoding, no entity but `&lt;` `&gt;` `&quot;` `&apos;` `&amp;` and
 * `&#N;` with N in decimal, taken modulo 256. Comments, processing instructions and a DOCTYPE are
 * skipped unread. Every byte above 127 may stand in text and in values, but in no name. Laxer than
 * XML, and kept so for the documents that rely on it: an end tag need only equal the tail of the path
 * of open elements, "!" and "?" may begin a name, `<a/b="1">` has an attribute, nothing need stand
 * between two attributes, and every "<!" in content that is neither a comment nor a DOCTYPE opens a
 * CDATA section, whose first 8 bytes are skipped unseen. Stricter: no blank may stand beside the "="
 * of an attribute.
 *
 * The whole document is held until it is parsed, in a buffer that doubles while text keeps coming. Its
 * length, its depth and the number and size of what is in it are bounded by memory alone; the time of a
 * parse grows with the length of the text, whatever the text is.
 *
 * A handle belongs to one thread at a time; different handles are independent. An exception that a
 * callback throws passes through nim_pdsParseBuffer().
 */

QV_BEGIN_C

/** A parser, from nim_pdsParseInit() to nim_pdsParseDestroy(). */
typedef void* PDS_PARSE_H;

/** What a common callback is called for. */
typedef enum pds_parse_cb_type_e {
    PDS_PARSE_CB_TAG_START = 0,
    PDS_PARSE_CB_TAG_END = 1,
    PDS_PARSE_CB_DATA = 2,
    PDS_PARSE_CB_CDATA = 3
} pds_parse_cb_type_e;

/** @name Flags of nim_pdsParseBuffer() */
/** @{ */
/** This is the last buffer: parse now. */
#define PDS_PARSE_F_LAST 1
/** Deliver no text that is all whitespace. */
#define PDS_PARSE_F_SKIP_WS 2
/** An attribute named "NULL" raises a data event, of empty text, ahead of its element's start. */
#define PDS_PARSE_F_NULL_ATTR 4
/** @} */

/** @name Results */
/** @{ */
/** The call did what it was to do. */
#define PDS_PARSE_OK 0
/** The handle is none. */
#define PDS_PARSE_E_BAD_HANDLE 700012001
/** A callback returned other than 0. */
#define PDS_PARSE_E_CALLBACK 700012002
/** A syntax error; nim_pdsParseGetErrorInfo() tells which and where. */
#define PDS_PARSE_E_SYNTAX 700012003
/** An earlier call on this handle failed. */
#define PDS_PARSE_E_PREVIOUS 700012004
/** The last buffer was already given. */
#define PDS_PARSE_E_DONE 700012005
/** A push outside of a start callback, or a second one in it. */
#define PDS_PARSE_E_PUSH_CONTEXT 700012006
/** Out of memory. */
#define PDS_PARSE_E_NO_MEMORY 700012900
/** A null argument. */
#define PDS_PARSE_E_BAD_ARGS 700012901
/** @} */

/**
 * A start tag. Returns 0 to go on; anything else stops the parse, here and in all callbacks.
 * @param fullTag       the names of the open elements, this one last, joined by "/"
 * @param numAttributes entries of `attributes`: two for each attribute
 * @param attributes    name, value, name, value ..., then a null pointer
 */
typedef int (*PDS_PARSE_TAG_ST_FN)(void* context, char* tag, char* fullTag, size_t numAttributes,
                                   char** attributes);
/** An end tag, or the end of an element that is a tag alone. `fullTag` still has the element. */
typedef int (*PDS_PARSE_TAG_END_FN)(void* context, char* tag, char* fullTag);
/** Text up to the next markup, with its symbols expanded, or CDATA as it stands (`isCData` 1). */
typedef int (*PDS_PARSE_DATA_FN)(void* context, int isCData, char* data, char* fullTag);
/**
 * All events in one. `data` is null for tags. Text comes with the attributes of the last start tag,
 * which may be that of a child; end tags and CDATA with none.
 */
typedef int (*PDS_PARSE_COMMON_FN)(PDS_PARSE_H handle, pds_parse_cb_type_e type, void* userData,
                                   void* userDataAlt, char* tag, char* fullTag, char* data,
                                   size_t numAttributes, char** attributes);

/**
 * Makes a parser.
 * @param pUserData handed to each callback as its context
 * @param fCommonCb called for every event in the place of the three others, which may be null only if
 *                  this one is not
 * @param ph        receives the handle, null without memory; bad arguments leave it alone
 * @return 0, PDS_PARSE_E_BAD_ARGS, PDS_PARSE_E_NO_MEMORY
 */
DALNIM_API int nim_pdsParseInit(int nFlags, void* pUserData, PDS_PARSE_TAG_ST_FN fTagStartCb,
                                PDS_PARSE_TAG_END_FN fTagEndCb, PDS_PARSE_DATA_FN fDataCb,
                                PDS_PARSE_COMMON_FN fCommonCb, void* pReserved2, PDS_PARSE_H* ph);

/**
 * Takes a piece of the document, which may end anywhere; parses it all with PDS_PARSE_F_LAST.
 * @param pszData ends at its first NUL; may be freed when the call returns
 * @return 0, or the first failure, after which only a reset or destruction is of use
 */
DALNIM_API int nim_pdsParseBuffer(char* pszData, int nFlags, PDS_PARSE_H h);

/**
 * Prepares the handle for another document, whatever the outcome of the last one. It keeps its memory.
 *
 * Called from a callback of the handle, it returns 0 and takes effect when the parse has returned: the
 * parse goes on as if it had not been called and returns its own result, but the message of a syntax error
 * is cleared by then. The last of several such calls decides `pUserData`.
 */
DALNIM_API int nim_pdsParseReset(int nFlags, void* pUserData, PDS_PARSE_H h);

/** Frees a parser and sets the handle to null. Must not be called from a callback of the handle. */
DALNIM_API int nim_pdsParseDestroy(PDS_PARSE_H* ph);

/**
 * From within a start-tag callback, once: hands everything within the element, and the element's own
 * end, to another callback, with another alternate user data. The one that was there returns behind
 * that end.
 *
 * Any failure but PDS_PARSE_E_BAD_ARGS also ends the parse when the callback returns. A second push in one
 * callback makes the parse return PDS_PARSE_E_PUSH_CONTEXT, whatever the callback returns. After any other
 * failure the parse returns the same code, or PDS_PARSE_E_CALLBACK if the callback returns other than 0.
 * @return 0, PDS_PARSE_E_PUSH_CONTEXT, PDS_PARSE_E_NO_MEMORY, PDS_PARSE_E_BAD_HANDLE, and
 *         PDS_PARSE_E_BAD_ARGS for a null callback or handle, which is returned before the handle is read
 */
DALNIM_API int nim_pdsParsePushCommonCB(PDS_PARSE_COMMON_FN fCb, void* pUserDataAlt, int nFlags,
                                        PDS_PARSE_H h);

/**
 * The last syntax error, "Null ParseHandle" or "Invalid ParseHandle". It names the offset, in bytes
 * of the document, and shows the 16 bytes from there, as far as the parser has left them.
 */
DALNIM_API const char* nim_pdsParseGetErrorInfo(PDS_PARSE_H h);

/**
 * The meaning of a detail code: 0 for none, 1 to 6 for PDS_PARSE_E_BAD_HANDLE to
 * PDS_PARSE_E_PUSH_CONTEXT. Null for any other.
 */
DALNIM_API const char* nim_pdsParseErrorToStr(int nDetailCode);

/** "Error to String function unimplemented", whatever it is given. The buffer is not touched. */
DALNIM_API const char* nim_pdsErrorToString(int nErrorCode, char* szBuffer, size_t nBufferSize);

/** Keeps a level of tracing, which nothing reads. */
DALNIM_API void nim_pdsParseTrcInit(int nSevLevel);

/** Prepares what all parsers share. nim_pdsParseInit() calls it; to call it again does no harm. */
DALNIM_API int ipdsParseInit(void);

QV_END_C

#endif
