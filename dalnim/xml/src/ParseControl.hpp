#ifndef DALNIM_XML_SRC_PARSECONTROL_HPP
#define DALNIM_XML_SRC_PARSECONTROL_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/xml/nim_opbparse.h>

#include <cstddef>

namespace com::kor::dal::nim::xml {

class ElementPath;

/** A common callback that nim_pdsParsePushCommonCB() has replaced. */
struct iCbStackItem
{
    /** The callback to restore; null restores the three separate callbacks. */
    PDS_PARSE_COMMON_FN callbackFn;
    void* pUserDataAlt;
    /** Depth of the element whose start callback replaced it. */
    int nTagDepth;
};

/**
 * The control block that a PDS_PARSE_H refers to. It owns `apszAttrs`, `pBuffer` and `pCbStack`, which are
 * allocated with `malloc` and freed by nim_pdsParseDestroy().
 */
struct iParseCB
{
    UInt32_t unEyeCatcher;
    /** Storage for the names of the open elements, joined by "/" and terminated by a NUL. */
    String ssTagPath;
    char** apszAttrs;
    /** Capacity of `apszAttrs` in entries. Remains 0 for the first array, which has INITIAL_ATTRS. */
    std::size_t nMaxAttrs;
    std::size_t nNumAttrs;
    int bError;
    int bDone;
    /** Error code of a failed push; checked when the callback returns. */
    int nPushErrCode;
    /** 0 outside a start callback, 1 inside one, 2 after the one push allowed, then PUSHED_TWICE. */
    int nInStartCB;
    int nTagDepth;
    String ssErrMsg;
    void* pUserData;
    void* pUserDataAlt;
    char* pBuffer;
    std::size_t nBuffSize;
    /** Length of the document in bytes, without the terminating NUL. */
    std::size_t nBuffUsed;
    iCbStackItem* pCbStack;
    int nCbStackNum;
    int nCbStackSize;
    PDS_PARSE_TAG_ST_FN cbTagStart;
    PDS_PARSE_TAG_END_FN cbTagEnd;
    PDS_PARSE_DATA_FN cbData;
    PDS_PARSE_COMMON_FN cbCommon;
    PDS_PARSE_COMMON_FN cbCommonOriginal;
    /** Whether a parse is running, so that callbacks may call the plain functions. */
    bool isParsing;
    /** Whether a callback has called nim_pdsParseReset(); the reset is done when the parse has ended. */
    bool isResetPending;
    /** User data of the pending reset. */
    void* pResetUserData;
    /** Length of each value in `apszAttrs`, in the same block. Null until the first attribute. */
    std::size_t* pValueLengths;
    /** Length of the text passed to the separate data callback. */
    std::size_t nDataLength;
    /** Path of the open elements; valid while a parse is running. */
    const ElementPath* pElements;
};

/** Value of `nInStartCB` after a second push: the result of that callback is ignored. */
constexpr int PUSHED_TWICE = 3;

/** Entries of the first attribute array, and of the array that replaces it. */
constexpr std::size_t INITIAL_ATTRS = 20;

}

#endif
