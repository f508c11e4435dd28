#ifndef DALNIM_XML_SRC_PARSECONTROL_HPP
#define DALNIM_XML_SRC_PARSECONTROL_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/xml/nim_opbparse.h>

#include <cstddef>

namespace com::kor::dal::nim::xml {

/** A common callback that a push has replaced. */
struct iCbStackItem
{
    /** To be restored, null for the three separate callbacks. */
    PDS_PARSE_COMMON_FN callbackFn;
    void* pUserDataAlt;
    /** The depth of the element during whose start it was replaced. */
    int nTagDepth;
};

/** What a PDS_PARSE_H points to. The blocks are from malloc, each owned by the one pointer to it. */
struct iParseCB
{
    UInt32_t unEyeCatcher;
    /** Memory for the names of the open elements, joined by "/"; they are ended by a NUL. */
    String ssTagPath;
    char** apszAttrs;
    /** Entries that the block is known to hold; 0 for the first one, which holds INITIAL_ATTRS. */
    std::size_t nMaxAttrs;
    std::size_t nNumAttrs;
    int bError;
    int bDone;
    /** The failure of a push, to be seen when its callback returns. */
    int nPushErrCode;
    /** 0 outside of a start callback, 1 inside, 2 after its one allowed push, then PUSHED_TWICE. */
    int nInStartCB;
    int nTagDepth;
    String ssErrMsg;
    void* pUserData;
    void* pUserDataAlt;
    char* pBuffer;
    std::size_t nBuffSize;
    /** Bytes of text, without the NUL behind it. */
    std::size_t nBuffUsed;
    iCbStackItem* pCbStack;
    int nCbStackNum;
    int nCbStackSize;
    PDS_PARSE_TAG_ST_FN cbTagStart;
    PDS_PARSE_TAG_END_FN cbTagEnd;
    PDS_PARSE_DATA_FN cbData;
    PDS_PARSE_COMMON_FN cbCommon;
    PDS_PARSE_COMMON_FN cbCommonOriginal;
    /** Whether the last buffer is being parsed, so that callbacks may run. */
    bool isParsing;
    /** Whether a callback has asked for a reset, and the context that it gave. */
    bool isResetPending;
    void* pResetUserData;
};

/** The nInStartCB of a start callback that pushed again: its result no longer matters. */
constexpr int PUSHED_TWICE = 3;

/** Entries of the first block of attributes, and of the first that takes its place. */
constexpr std::size_t INITIAL_ATTRS = 20;

}

#endif
