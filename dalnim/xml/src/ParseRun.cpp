#include <dalnim/dalbase.hpp>

#include "ParseRun.hpp"

#include "CharTypes.hpp"
#include "TextScan.hpp"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace com::kor::dal::nim::xml {

namespace {

/** Bytes of the text that an error shows, and that the mark of an early end moves back. */
constexpr std::size_t SHOWN_BYTES = 16;
constexpr std::size_t EARLY_END_BYTES = 8;

/** "![CDATA[", which is not looked at: whatever the spelling, so many bytes are skipped. */
constexpr std::ptrdiff_t CDATA_OPENING_BYTES = 8;

/**
 * Finds the end of a DOCTYPE: the ">" that no "<" before it claims. Quotes and brackets mean nothing.
 * @param pOut receives the byte behind it
 * @return 0, or -1 when the text ends first
 */
int findEndOfDocType(char* pIn, char* end, char** pOut)
{
    std::size_t open = 0;
    while ((pIn = findEither(pIn, end, '<', '>')) != end) {
        const char c = *pIn++;
        if (c == '<') {
            ++open;
        } else if (open == 0) {
            *pOut = pIn;
            return 0;
        } else {
            --open;
        }
    }
    return -1;
}

/** One symbol, behind its "&": its byte, and the position behind its ";", or null for none. */
char* readSymbol(char* p, char& value)
{
    struct Symbol
    {
        char text[6];
        std::size_t length;
        char value;
    };
    static constexpr Symbol SYMBOLS[] = {
        {"lt;", 3, '<'}, {"gt;", 3, '>'}, {"quot;", 5, '"'}, {"apos;", 5, '\''}, {"amp;", 4, '&'}};

    for (const Symbol& symbol : SYMBOLS) {
        if (std::strncmp(p, symbol.text, symbol.length) == 0) {
            value = symbol.value;
            return p + symbol.length;
        }
    }
    if (*p != '#') {
        return nullptr;
    }
    // The number is formed in one byte: it wraps, and no digits are 0.
    unsigned number = 0;
    for (++p; *p >= '0' && *p <= '9'; ++p) {
        number = (number * 10 + static_cast<unsigned>(*p - '0')) % 256;
    }
    if (*p != ';') {
        return nullptr;
    }
    value = static_cast<char>(number);
    return p + 1;
}

/**
 * Replaces the symbols of a text in its place.
 * @param p   the first "&"
 * @param end the NUL of the text
 * @return 0, or -1 for an "&" that begins no symbol
 */
int expandSpecialSymbols(char* p, char* end)
{
    char* out = p;
    while (p != end) {
        p = readSymbol(p + 1, *out);
        if (p == nullptr) {
            return -1;
        }
        ++out;
        auto* next = static_cast<char*>(std::memchr(p, '&', static_cast<std::size_t>(end - p)));
        next = next == nullptr ? end : next;
        const auto between = static_cast<std::size_t>(next - p);
        std::memmove(out, p, between);
        out += between;
        p = next;
    }
    *out = '\0';
    return 0;
}

/** Restores the callback that the element just closed had replaced. -1 when none is replaced. */
int parsePopCommonCB(iParseCB& cb)
{
    if (cb.nCbStackNum == 0) {
        return -1;
    }
    const iCbStackItem& item = cb.pCbStack[cb.nCbStackNum - 1];
    if (item.nTagDepth > cb.nTagDepth) {
        cb.cbCommon = item.callbackFn;
        cb.pUserDataAlt = item.pUserDataAlt;
        --cb.nCbStackNum;
    }
    return 0;
}

}

ParseRun::ParseRun(iParseCB& control, int flags)
    : cb(control), skipsBlankText((flags & PDS_PARSE_F_SKIP_WS) != 0),
      tellsNullAttribute((flags & PDS_PARSE_F_NULL_ATTR) != 0), begin(control.pBuffer),
      end(control.pBuffer + control.nBuffUsed), p(control.pBuffer), mark(0), state(ST_TOP),
      resumed(ST_TOP), hasRoot(false), tag(control.pBuffer), tagLength(0)
{
}

int ParseRun::run()
{
    int code = PDS_PARSE_OK;
    // A tag that was its own end is delivered also where the text ends behind it.
    while (code == PDS_PARSE_OK && (p != end || state == ST_TAG_EMPTY)) {
        code = step();
    }
    if (code != PDS_PARSE_OK || state == ST_TOP) {
        return code;
    }
    mark -= std::min(mark, EARLY_END_BYTES);
    return syntaxError("Premature end of data stream (not at top-level)");
}

int ParseRun::step()
{
    switch (state) {
    case ST_COMMENT:
        return comment();
    case ST_TOP:
        return top();
    case ST_TAG_NAME:
        return tagName();
    case ST_TAG_OPEN:
    case ST_TAG_EMPTY:
        return tagOpen();
    case ST_ATTRS:
        return attribute();
    case ST_END_TAG:
        return endTag();
    case ST_CONTENT:
        return content();
    case ST_CDATA:
        return cdata();
    }
    return PDS_PARSE_OK;
}

int ParseRun::top()
{
    p = skip(CHAR_SPACE, p);
    mark = static_cast<std::size_t>(p - begin);
    if (p == end) {
        return PDS_PARSE_OK;
    }
    if (*p != '<') {
        return syntaxError("Invalid data contained outside a top-level Element");
    }
    if (startsWith(p, end, "<!--")) {
        resumed = ST_TOP;
        state = ST_COMMENT;
        p += 4;
        return PDS_PARSE_OK;
    }
    if (p[1] == '?') {
        return processingInstruction();
    }
    if (startsWith(p, end, "<!DOCTYPE ")) {
        return docType(p + 10);
    }
    if (hasRoot) {
        return syntaxError("Multiple top-level Elements encountered");
    }
    hasRoot = true;
    ++p;
    state = ST_TAG_NAME;
    return PDS_PARSE_OK;
}

int ParseRun::processingInstruction()
{
    char* const behind = findBehind(p, end, "?>");
    if (behind == nullptr) {
        return syntaxError("Invalid processing instruction: '<?' without a matching '?>'");
    }
    p = behind;
    return PDS_PARSE_OK;
}

int ParseRun::docType(char* behindOpening)
{
    if (findEndOfDocType(behindOpening, end, &p) != 0) {
        return syntaxError("DOCTYPE tag is not properly terminated - reached End Of Document");
    }
    return PDS_PARSE_OK;
}

int ParseRun::comment()
{
    char* const behind = findBehind(p, end, "-->");
    if (behind == nullptr) {
        return syntaxError("Comment not terminated");
    }
    p = behind;
    state = resumed;
    return PDS_PARSE_OK;
}

int ParseRun::tagName()
{
    char* const name = p;
    mark = static_cast<std::size_t>(name - begin);
    if (!isA(CHAR_NAME_START, *name)) {
        return syntaxError("Element name [Start Tag] starts with an invalid character");
    }
    char* const stop = skip(CHAR_NAME, name);
    const char stopped = *stop;
    if (stopped != '>' && stopped != '/' && !isA(CHAR_SPACE, stopped)) {
        return syntaxError("Element name [Start Tag] contains an invalid character");
    }
    *stop = '\0';
    p = stop + 1;
    tag = name;
    tagLength = static_cast<std::size_t>(stop - name);
    const int code = openPath();
    if (code != PDS_PARSE_OK) {
        return code;
    }
    ++cb.nTagDepth;
    cb.nNumAttrs = 0;
    attributeNames.clear();
    if (stopped == '>') {
        state = ST_TAG_OPEN;
    } else if (stopped == '/' && *p == '>') {
        ++p;
        state = ST_TAG_EMPTY;
    } else {
        state = ST_ATTRS;
    }
    return PDS_PARSE_OK;
}

int ParseRun::openPath()
{
    try {
        if (cb.nTagDepth == 0) {
            cb.ssTagPath.assign(tag, tagLength);
        } else {
            slashes.push_back(cb.ssTagPath.size());
            cb.ssTagPath.push_back('/');
            cb.ssTagPath.append(tag, tagLength);
        }
        return PDS_PARSE_OK;
    } catch (const std::bad_alloc&) {
        return fail(PDS_PARSE_E_NO_MEMORY);
    }
}

int ParseRun::attribute()
{
    p = skip(CHAR_SPACE, p);
    if (p == end) {
        return PDS_PARSE_OK;
    }
    mark = static_cast<std::size_t>(p - begin);
    if (*p == '>') {
        ++p;
        state = ST_TAG_OPEN;
        return PDS_PARSE_OK;
    }
    if (*p == '/' && p[1] == '>') {
        p += 2;
        state = ST_TAG_EMPTY;
        return PDS_PARSE_OK;
    }
    char* const name = p;
    if (!isA(CHAR_NAME_START, *name)) {
        return syntaxError("Attribute name  starts with an invalid character");
    }
    char* const stop = skip(CHAR_NAME, name);
    if (*stop != '=') {
        return syntaxError("Attribute name doesn't terminate with an '='");
    }
    *stop = '\0';
    p = stop + 1;
    const int code = noteAttribute(name, static_cast<std::size_t>(stop - name));
    return code != PDS_PARSE_OK ? code : attributeValue();
}

int ParseRun::noteAttribute(char* name, std::size_t length)
{
    if (tellsNullAttribute && cb.cbCommon != nullptr && std::strcmp(name, "NULL") == 0) {
        const int code = nullAttribute();
        if (code != PDS_PARSE_OK) {
            return code;
        }
    }
    try {
        if (!attributeNames.add(name, length, cb.apszAttrs, cb.nNumAttrs)) {
            return syntaxError("Duplicate attribute name");
        }
    } catch (const std::bad_alloc&) {
        return fail(PDS_PARSE_E_NO_MEMORY);
    }
    // Room for the name, its value and the null entry behind all.
    if (cb.nNumAttrs + 3 >= cb.nMaxAttrs) {
        const int code = growAttributes();
        if (code != PDS_PARSE_OK) {
            return code;
        }
    }
    cb.apszAttrs[cb.nNumAttrs] = name;
    return PDS_PARSE_OK;
}

int ParseRun::nullAttribute()
{
    char nothing[] = "";
    // Told as empty, but whoever walks it finds its end: each addition leaves room for one more.
    cb.apszAttrs[cb.nNumAttrs] = nullptr;
    return checkCallback(cb.cbCommon(&cb, PDS_PARSE_CB_DATA, cb.pUserData, cb.pUserDataAlt, tag, path(),
                                     nothing, 0, cb.apszAttrs));
}

int ParseRun::growAttributes()
{
    const std::size_t capacity = cb.nMaxAttrs == 0 ? INITIAL_ATTRS : 2 * cb.nMaxAttrs;
    auto** const grown = static_cast<char**>(std::malloc(capacity * sizeof(char*)));
    if (grown == nullptr) {
        return fail(PDS_PARSE_E_NO_MEMORY);
    }
    std::copy_n(cb.apszAttrs, cb.nNumAttrs, grown);
    std::free(cb.apszAttrs);
    cb.apszAttrs = grown;
    cb.nMaxAttrs = capacity;
    return PDS_PARSE_OK;
}

int ParseRun::attributeValue()
{
    const char quote = *p;
    if (quote != '"' && quote != '\'') {
        return syntaxError("Attribute value doesn't start with a quote");
    }
    char* const value = p + 1;
    mark = static_cast<std::size_t>(value - begin);
    char* ampersand = nullptr;
    char* stop = findInValue(value, end, quote);
    while (stop != end && *stop != quote) {
        if (*stop != '&') {
            *stop = ' ';
        } else if (ampersand == nullptr) {
            ampersand = stop;
        }
        stop = findInValue(stop + 1, end, quote);
    }
    if (stop == end) {
        return syntaxError("Attribute value doesn't end with a quote");
    }
    *stop = '\0';
    p = stop + 1;
    if (ampersand != nullptr && expandSpecialSymbols(ampersand, stop) != 0) {
        return syntaxError("Unrecognized special symbol");
    }
    cb.apszAttrs[cb.nNumAttrs + 1] = value;
    cb.nNumAttrs += 2;
    return PDS_PARSE_OK;
}

int ParseRun::tagOpen()
{
    cb.apszAttrs[cb.nNumAttrs] = nullptr;
    cb.nInStartCB = 1;
    const int result = deliverStart();
    cb.nInStartCB = 0;
    int code = checkCallback(result);
    if (code == PDS_PARSE_OK && state == ST_TAG_EMPTY) {
        code = deliverEnd();
        if (code == PDS_PARSE_OK) {
            closeElement();
        }
    }
    state = behindElement();
    return code;
}

int ParseRun::deliverStart()
{
    if (cb.cbCommon != nullptr) {
        return cb.cbCommon(&cb, PDS_PARSE_CB_TAG_START, cb.pUserData, cb.pUserDataAlt, tag, path(),
                           nullptr, cb.nNumAttrs, cb.apszAttrs);
    }
    return cb.cbTagStart(cb.pUserData, tag, path(), cb.nNumAttrs, cb.apszAttrs);
}

int ParseRun::content()
{
    mark = static_cast<std::size_t>(p - begin);
    if (*p != '<') {
        return text();
    }
    *p++ = '\0';
    switch (*p) {
    case '/':
        ++p;
        state = ST_END_TAG;
        return PDS_PARSE_OK;
    case '?':
        return processingInstruction();
    case '!':
        break;
    default:
        state = ST_TAG_NAME;
        return PDS_PARSE_OK;
    }
    if (startsWith(p, end, "!--")) {
        p += 3;
        resumed = ST_CONTENT;
        state = ST_COMMENT;
        return PDS_PARSE_OK;
    }
    if (startsWith(p, end, "!DOCTYPE ")) {
        return docType(p + 9);
    }
    resumed = ST_CONTENT;
    state = ST_CDATA;
    if (end - p < CDATA_OPENING_BYTES) {
        mark = static_cast<std::size_t>(p - begin + CDATA_OPENING_BYTES);
        return syntaxError("CDATA segment not terminated");
    }
    p += CDATA_OPENING_BYTES;
    return PDS_PARSE_OK;
}

int ParseRun::text()
{
    char* const data = p;
    char* stop = findEither(data, end, '<', '&');
    char* ampersand = nullptr;
    if (*stop == '&') {
        ampersand = stop;
        auto* const next = static_cast<char*>(std::memchr(stop, '<', static_cast<std::size_t>(end - stop)));
        stop = next == nullptr ? end : next;
    }
    const char stopped = *stop;
    *stop = '\0';
    p = stop;
    if (ampersand != nullptr && expandSpecialSymbols(ampersand, stop) != 0) {
        return syntaxError("Unrecognized special symbol");
    }
    int code = PDS_PARSE_OK;
    if (!skipsBlankText || *skip(CHAR_SPACE, data) != '\0') {
        code = deliverText(data);
    }
    *stop = stopped;
    return code;
}

int ParseRun::deliverText(char* data)
{
    if (cb.cbCommon != nullptr) {
        return checkCallback(cb.cbCommon(&cb, PDS_PARSE_CB_DATA, cb.pUserData, cb.pUserDataAlt, tag,
                                         path(), data, cb.nNumAttrs, cb.apszAttrs));
    }
    return checkCallback(cb.cbData(cb.pUserData, 0, data, path()));
}

int ParseRun::cdata()
{
    char* const data = p;
    mark = static_cast<std::size_t>(data - begin);
    char* const behind = findBehind(data, end, "]]>");
    if (behind == nullptr) {
        return syntaxError("CDATA segment not terminated");
    }
    *(behind - 3) = '\0';
    p = behind;
    state = resumed;
    if (cb.cbCommon != nullptr) {
        return checkCallback(cb.cbCommon(&cb, PDS_PARSE_CB_CDATA, cb.pUserData, cb.pUserDataAlt, tag,
                                         path(), data, 0, nullptr));
    }
    return checkCallback(cb.cbData(cb.pUserData, 1, data, path()));
}

int ParseRun::endTag()
{
    char* const name = p;
    mark = static_cast<std::size_t>(name - begin);
    tag = name;
    if (!isA(CHAR_NAME_START, *name)) {
        return syntaxError("Element name [End Tag] starts with an invalid character");
    }
    char* const stop = skip(CHAR_NAME, name);
    tagLength = static_cast<std::size_t>(stop - name);
    char* const close = skip(CHAR_SPACE, stop);
    const char closing = *close;
    *stop = '\0';
    if (closing != '>') {
        return syntaxError("Element name [End Tag] contains an invalid character");
    }
    p = close + 1;
    // Only the tail of the path is looked at, wherever its "/" stand: "</b>" closes "<ab>".
    const String& open = cb.ssTagPath;
    if (tagLength > open.size() || open.compare(open.size() - tagLength, tagLength, tag, tagLength) != 0) {
        return syntaxError("Mismatched End Tag");
    }
    const int code = deliverEnd();
    if (code == PDS_PARSE_OK) {
        closeElement();
        state = behindElement();
    }
    return code;
}

int ParseRun::deliverEnd()
{
    if (cb.cbCommon != nullptr) {
        return checkCallback(cb.cbCommon(&cb, PDS_PARSE_CB_TAG_END, cb.pUserData, cb.pUserDataAlt, tag,
                                         path(), nullptr, 0, nullptr));
    }
    return checkCallback(cb.cbTagEnd(cb.pUserData, tag, path()));
}

void ParseRun::closeElement()
{
    String& open = cb.ssTagPath;
    open.resize(open.size() - tagLength);
    if (!open.empty()) {
        open.pop_back();
    }
    --cb.nTagDepth;
    while (!slashes.empty() && slashes.back() >= open.size()) {
        slashes.pop_back();
    }
    const std::size_t parent = slashes.empty() ? 0 : slashes.back() + 1;
    tag = open.data() + parent;
    tagLength = open.size() - parent;
    if (cb.nCbStackNum > 0) {
        parsePopCommonCB(cb);
    }
}

int ParseRun::checkCallback(int result)
{
    if (result != 0) {
        return fail(PDS_PARSE_E_CALLBACK);
    }
    return cb.nPushErrCode == PDS_PARSE_OK ? PDS_PARSE_OK : fail(cb.nPushErrCode);
}

int ParseRun::fail(int code)
{
    cb.bError = 1;
    return code;
}

int ParseRun::syntaxError(const char* message)
{
    const auto size = static_cast<std::size_t>(end - begin);
    const std::size_t shown = std::min(mark, size);
    try {
        cb.ssErrMsg = message;
        cb.ssErrMsg += " -- near offset ";
        cb.ssErrMsg += std::to_string(mark);
        cb.ssErrMsg += ": ";
        cb.ssErrMsg.append(begin + shown, std::min(SHOWN_BYTES, size - shown));
        cb.ssErrMsg += "...";
    } catch (const std::bad_alloc&) {
        cb.ssErrMsg.clear();
        return fail(PDS_PARSE_E_NO_MEMORY);
    }
    return fail(PDS_PARSE_E_SYNTAX);
}

ParseRun::State ParseRun::behindElement() const
{
    return cb.nTagDepth != 0 ? ST_CONTENT : ST_TOP;
}

char* ParseRun::path()
{
    return cb.ssTagPath.data();
}

}
