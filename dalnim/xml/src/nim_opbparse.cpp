#include <dalnim/dalbase.hpp>

#include <dalnim/xml/nim_opbparse.h>

#include "CharTypes.hpp"
#include "ParseControl.hpp"
#include "ParseRun.hpp"

#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/MutexHolder.hpp>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

using com::kor::dal::nim::UInt32_t;
using com::kor::dal::nim::mt::CriticalSection;
using com::kor::dal::nim::mt::MutexHolder;
using com::kor::dal::nim::xml::fillCharTypes;
using com::kor::dal::nim::xml::iCbStackItem;
using com::kor::dal::nim::xml::INITIAL_ATTRS;
using com::kor::dal::nim::xml::iParseCB;
using com::kor::dal::nim::xml::PUSHED_TWICE;
using com::kor::dal::nim::xml::runParse;

namespace {

/** The bytes "APDP" in memory order. */
constexpr UInt32_t EYE_CATCHER = 'A' | 'P' << 8 | 'D' << 16 | 'P' << 24;

constexpr std::size_t MIN_OPEN_BUFFER = 2048;
constexpr std::size_t COPY_CHUNK = 16384;
constexpr int CB_STACK_STEP = 20;

/** Messages by detail code: result code - PDS_PARSE_E_BAD_HANDLE + 1. */
const char* const aszErrmsgs[] = {
    "No error",
    "Invalid parse handle supplied",
    "Parse operation was terminated by one of the callbacks",
    "A syntax error was encountered while parsing",
    "The parsing operation encountered an error previously",
    "The parsing operation is completed",
    "nim_nim_pdsParsePushCommonCB() can only be called from within a Start-Tag callback",
};

/** Stored with relaxed order: no code reads it. */
std::atomic<int> trace_severity{0};

std::atomic<bool> charTypesInitialized{false};
/** Never acquired, since filling the table is idempotent. Kept for compatibility. */
const CriticalSection parseInitCritSection; // NOLINT(cert-err58-cpp): initialising a plain mutex cannot fail

iParseCB& controlBlock(PDS_PARSE_H h)
{
    return *static_cast<iParseCB*>(h);
}

bool hasEyeCatcher(const iParseCB& cb)
{
    return cb.unEyeCatcher == EYE_CATCHER;
}

/** Reserves `added` bytes and the terminating NUL. Returns false if memory runs out. */
bool reserve(iParseCB& cb, std::size_t added, bool last)
{
    if (cb.nBuffUsed + added < cb.nBuffSize) {
        return true;
    }
    std::size_t size = cb.nBuffUsed + added + 1;
    if (!last) {
        size = size < MIN_OPEN_BUFFER ? MIN_OPEN_BUFFER : 2 * size;
    }
    auto* const block = static_cast<char*>(std::malloc(size));
    if (block == nullptr) {
        return false;
    }
    if (cb.nBuffUsed > 0) {
        std::memcpy(block, cb.pBuffer, cb.nBuffUsed);
    }
    std::free(cb.pBuffer);
    cb.pBuffer = block;
    cb.nBuffSize = size;
    return true;
}

/** Appends a string and its NUL to the document. Returns false if memory runs out. */
bool append(iParseCB& cb, const char* chunk, bool last)
{
    // In chunks while the buffer has room: each is measured and then copied while it is still in the cache.
    std::size_t taken = 0;
    std::size_t length = COPY_CHUNK;
    while (length == COPY_CHUNK && cb.nBuffUsed + COPY_CHUNK < cb.nBuffSize) {
        length = strnlen(chunk + taken, COPY_CHUNK);
        std::memcpy(cb.pBuffer + cb.nBuffUsed, chunk + taken, length);
        taken += length;
        cb.nBuffUsed += length;
    }
    if (length < COPY_CHUNK) {
        cb.pBuffer[cb.nBuffUsed] = '\0';
        return true;
    }
    length = std::strlen(chunk + taken);
    if (!reserve(cb, length, last)) {
        return false;
    }
    std::memcpy(cb.pBuffer + cb.nBuffUsed, chunk + taken, length + 1);
    cb.nBuffUsed += length;
    return true;
}

/** Reserves an entry of the callback stack. Returns false if memory runs out. */
bool reserveStackItem(iParseCB& cb)
{
    if (cb.nCbStackNum < cb.nCbStackSize) {
        return true;
    }
    const int size = cb.nCbStackSize + CB_STACK_STEP;
    auto* const grown =
        static_cast<iCbStackItem*>(std::malloc(static_cast<std::size_t>(size) * sizeof(iCbStackItem)));
    if (grown == nullptr) {
        return false;
    }
    std::copy_n(cb.pCbStack, cb.nCbStackNum, grown);
    std::free(cb.pCbStack);
    cb.pCbStack = grown;
    cb.nCbStackSize = size;
    return true;
}

/**
 * Records the failure of a push, so that the parse ends when the calling callback returns. Returns `code`.
 */
int failPush(iParseCB& cb, int code)
{
    cb.nPushErrCode = code;
    return code;
}

void reset(iParseCB& cb, void* pUserData)
{
    cb.pUserData = pUserData;
    cb.pUserDataAlt = pUserData;
    cb.nNumAttrs = 0;
    cb.bError = 0;
    cb.bDone = 0;
    cb.nPushErrCode = PDS_PARSE_OK;
    cb.nInStartCB = 0;
    cb.nTagDepth = 0;
    cb.nBuffUsed = 0;
    cb.nCbStackNum = 0;
    cb.cbCommon = cb.cbCommonOriginal;
    cb.ssErrMsg.clear();
}

/**
 * Marks a control block as being parsed. The destructor performs the reset that a callback requested, also if
 * a callback has thrown. It cannot be done earlier: the parse uses the fields that a reset clears.
 */
class ParseScope
{
public:
    explicit ParseScope(iParseCB& control) : cb(control)
    {
        cb.isParsing = true;
    }
    ~ParseScope()
    {
        cb.isParsing = false;
        if (cb.isResetPending) {
            cb.isResetPending = false;
            reset(cb, cb.pResetUserData);
        }
    }
    ParseScope(const ParseScope&) = delete;
    ParseScope& operator=(const ParseScope&) = delete;

private:
    iParseCB& cb;
};

}

int nim_pdsParseInit(int, void* pUserData, PDS_PARSE_TAG_ST_FN fTagStartCb, PDS_PARSE_TAG_END_FN fTagEndCb,
                     PDS_PARSE_DATA_FN fDataCb, PDS_PARSE_COMMON_FN fCommonCb, void*, PDS_PARSE_H* ph)
{
    ipdsParseInit();
    const bool hasSeparate = fTagStartCb != nullptr && fTagEndCb != nullptr && fDataCb != nullptr;
    if (ph == nullptr || (fCommonCb == nullptr && !hasSeparate)) {
        return PDS_PARSE_E_BAD_ARGS;
    }
    *ph = nullptr;
    std::unique_ptr<iParseCB> cb(new (std::nothrow) iParseCB());
    if (cb == nullptr) {
        return PDS_PARSE_E_NO_MEMORY;
    }
    cb->unEyeCatcher = EYE_CATCHER;
    cb->pUserData = pUserData;
    cb->pUserDataAlt = pUserData;
    cb->cbTagStart = fTagStartCb;
    cb->cbTagEnd = fTagEndCb;
    cb->cbData = fDataCb;
    cb->cbCommon = fCommonCb;
    cb->cbCommonOriginal = fCommonCb;
    cb->apszAttrs = static_cast<char**>(std::malloc(INITIAL_ATTRS * sizeof(char*)));
    if (cb->apszAttrs == nullptr) {
        return PDS_PARSE_E_NO_MEMORY;
    }
    *ph = cb.release();
    return PDS_PARSE_OK;
}

int nim_pdsParseBuffer(char* pszData, int nFlags, PDS_PARSE_H h)
{
    if (pszData == nullptr || h == nullptr) {
        return PDS_PARSE_E_BAD_ARGS;
    }
    iParseCB& cb = controlBlock(h);
    if (!hasEyeCatcher(cb)) {
        return PDS_PARSE_E_BAD_HANDLE;
    }
    if (cb.bError != 0) {
        return PDS_PARSE_E_PREVIOUS;
    }
    if (cb.bDone != 0) {
        return PDS_PARSE_E_DONE;
    }
    const bool last = (nFlags & PDS_PARSE_F_LAST) != 0;
    if (!append(cb, pszData, last)) {
        cb.bError = 1;
        return PDS_PARSE_E_NO_MEMORY;
    }
    if (!last) {
        return PDS_PARSE_OK;
    }
    cb.bDone = 1;
    if (cb.nBuffUsed == 0) {
        return PDS_PARSE_OK;
    }
    const ParseScope parsing(cb);
    return runParse(cb, nFlags);
}

int nim_pdsParseReset(int, void* pUserData, PDS_PARSE_H h)
{
    if (h == nullptr) {
        return PDS_PARSE_E_BAD_ARGS;
    }
    iParseCB& cb = controlBlock(h);
    if (!hasEyeCatcher(cb)) {
        return PDS_PARSE_E_BAD_HANDLE;
    }
    if (cb.isParsing) {
        cb.isResetPending = true;
        cb.pResetUserData = pUserData;
    } else {
        reset(cb, pUserData);
    }
    return PDS_PARSE_OK;
}

int nim_pdsParseDestroy(PDS_PARSE_H* ph)
{
    if (ph == nullptr || *ph == nullptr) {
        return PDS_PARSE_E_BAD_ARGS;
    }
    if (!hasEyeCatcher(controlBlock(*ph))) {
        return PDS_PARSE_E_BAD_HANDLE;
    }
    const std::unique_ptr<iParseCB> cb(&controlBlock(*ph));
    *ph = nullptr;
    std::free(cb->apszAttrs);
    std::free(cb->pBuffer);
    std::free(cb->pCbStack);
    return PDS_PARSE_OK;
}

int nim_pdsParsePushCommonCB(PDS_PARSE_COMMON_FN fCb, void* pUserDataAlt, int, PDS_PARSE_H h)
{
    if (h == nullptr || fCb == nullptr) {
        return PDS_PARSE_E_BAD_ARGS;
    }
    iParseCB& cb = controlBlock(h);
    if (!hasEyeCatcher(cb)) {
        return failPush(cb, PDS_PARSE_E_BAD_HANDLE);
    }
    if (cb.nInStartCB != 1) {
        cb.nInStartCB = cb.nInStartCB == 2 ? PUSHED_TWICE : cb.nInStartCB;
        return failPush(cb, PDS_PARSE_E_PUSH_CONTEXT);
    }
    cb.nInStartCB = 2;
    if (!reserveStackItem(cb)) {
        return failPush(cb, PDS_PARSE_E_NO_MEMORY);
    }
    cb.pCbStack[cb.nCbStackNum++] = iCbStackItem{cb.cbCommon, cb.pUserDataAlt, cb.nTagDepth};
    cb.cbCommon = fCb;
    cb.pUserDataAlt = pUserDataAlt;
    return PDS_PARSE_OK;
}

const char* nim_pdsParseGetErrorInfo(PDS_PARSE_H h)
{
    if (h == nullptr) {
        return "Null ParseHandle";
    }
    const iParseCB& cb = controlBlock(h);
    return hasEyeCatcher(cb) ? cb.ssErrMsg.c_str() : "Invalid ParseHandle";
}

const char* nim_pdsParseErrorToStr(int nDetailCode)
{
    constexpr int count = sizeof aszErrmsgs / sizeof aszErrmsgs[0];
    return nDetailCode >= 0 && nDetailCode < count ? aszErrmsgs[nDetailCode] : nullptr;
}

const char* nim_pdsErrorToString(int, char*, std::size_t)
{
    return "Error to String function unimplemented";
}

void nim_pdsParseTrcInit(int nSevLevel)
{
    trace_severity.store(nSevLevel, std::memory_order_relaxed);
}

int ipdsParseInit()
{
    // Acquires the table, whose elements are relaxed, from the store below, which releases it.
    if (!charTypesInitialized.load(std::memory_order_acquire)) {
        // Deliberately holds no mutex: filling the table is idempotent.
        const MutexHolder<CriticalSection> holder;
        fillCharTypes();
        charTypesInitialized.store(true, std::memory_order_release);
    }
    return 0;
}
