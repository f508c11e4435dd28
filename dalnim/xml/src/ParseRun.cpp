#include <dalnim/dalbase.hpp>

#include "ParseRun.hpp"

#include "AttributeNames.hpp"
#include "ElementPath.hpp"
#include "EventSender.hpp"
#include "Symbols.hpp"
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

/** Makes room for an attribute's name and value and the null entry behind all; false without memory. */
bool reserveAttribute(iParseCB& cb)
{
    if (cb.nNumAttrs + 3 < cb.nMaxAttrs) {
        return true;
    }
    const std::size_t capacity = cb.nMaxAttrs == 0 ? INITIAL_ATTRS : 2 * cb.nMaxAttrs;
    auto** const grown = static_cast<char**>(std::malloc(capacity * sizeof(char*)));
    if (grown == nullptr) {
        return false;
    }
    std::copy_n(cb.apszAttrs, cb.nNumAttrs, grown);
    std::free(cb.apszAttrs);
    cb.apszAttrs = grown;
    cb.nMaxAttrs = capacity;
    return true;
}

/**
 * One run of the state machine over the text of a control block, which it edits: what is delivered
 * is ended by a NUL in its place.
 *
 * Ahead of the position the text has no NUL but the one behind its end, since it arrived as
 * NUL-terminated pieces and only what is passed is edited.
 *
 * Every step returns PDS_PARSE_OK or the code that ends the parse.
 */
class ParseRun
{
public:
    ParseRun(iParseCB& control, int flags, ElementPath& elements, AttributeNames& names)
        : cb(control), path(elements), attributeNames(names),
          skipsBlankText((flags & PDS_PARSE_F_SKIP_WS) != 0),
          tellsNullAttribute((flags & PDS_PARSE_F_NULL_ATTR) != 0), begin(control.pBuffer),
          end(control.pBuffer + control.nBuffUsed), p(control.pBuffer)
    {
    }

    int run();
    /** What is wrong, where run() returned PDS_PARSE_E_SYNTAX. */
    String errorText() const;

private:
    /** What stands at the position. */
    enum State {
        ST_COMMENT,
        ST_TOP,
        ST_TAG_NAME,
        ST_TAG_OPEN,
        ST_TAG_EMPTY,
        ST_ATTRS,
        ST_END_TAG,
        ST_CONTENT,
        ST_CDATA
    };

    int step();
    int top();
    int tagName();
    int attribute();
    int attributeValue(char* name);
    int startElement();
    int content();
    int text();
    int cdataOpening();
    int comment();
    int cdata();
    int endTag();
    int endElement();
    int processingInstruction();
    int docType(char* behindOpening);

    void markAt(const char* position)
    {
        mark = static_cast<std::size_t>(position - begin);
    }
    int syntaxError(const char* text)
    {
        message = text;
        return PDS_PARSE_E_SYNTAX;
    }

    iParseCB& cb;
    ElementPath& path;
    AttributeNames& attributeNames;
    const bool skipsBlankText;
    const bool tellsNullAttribute;
    char* const begin;
    char* const end;
    /** The position. */
    char* p;
    /** The offset that an error names; it may lie behind the end. */
    std::size_t mark = 0;
    const char* message = "";
    State state = ST_TOP;
    /** Where a comment or CDATA leads back to. */
    State resumed = ST_TOP;
    bool hasRoot = false;
};

inline int ParseRun::run()
{
    // A tag that was its own end is delivered also where the text ends behind it.
    while (p != end || state == ST_TAG_EMPTY) {
        const int code = step();
        if (code != PDS_PARSE_OK) {
            return code;
        }
    }
    if (state == ST_TOP) {
        return PDS_PARSE_OK;
    }
    mark -= std::min(mark, EARLY_END_BYTES);
    return syntaxError("Premature end of data stream (not at top-level)");
}

inline int ParseRun::step()
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
        return startElement();
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
    p = skipSpace(p, end);
    markAt(p);
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
    // The "?" that opens it may be the one that closes it.
    for (char* close = findByte(p, end, '?'); close != end; close = findByte(close + 1, end, '?')) {
        if (close[1] == '>') {
            p = close + 2;
            return PDS_PARSE_OK;
        }
    }
    return syntaxError("Invalid processing instruction: '<?' without a matching '?>'");
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

inline int ParseRun::tagName()
{
    char* const name = p;
    markAt(name);
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
    const auto length = static_cast<std::size_t>(stop - name);
    if (!path.open(name, length, cb.nTagDepth == 0)) {
        return PDS_PARSE_E_NO_MEMORY;
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

inline int ParseRun::attribute()
{
    p = skip(CHAR_SPACE, p);
    if (p == end) {
        return PDS_PARSE_OK;
    }
    markAt(p);
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
    if (tellsNullAttribute && cb.cbCommon != nullptr && std::strcmp(name, "NULL") == 0) {
        const int code = EventSender(cb, path).nullAttribute();
        if (code != PDS_PARSE_OK) {
            return code;
        }
    }
    try {
        if (!attributeNames.add(name, static_cast<std::size_t>(stop - name), cb.apszAttrs, cb.nNumAttrs)) {
            return syntaxError("Duplicate attribute name");
        }
    } catch (const std::bad_alloc&) {
        return PDS_PARSE_E_NO_MEMORY;
    }
    return attributeValue(name);
}

inline int ParseRun::attributeValue(char* name)
{
    if (!reserveAttribute(cb)) {
        return PDS_PARSE_E_NO_MEMORY;
    }
    const char quote = *p;
    if (quote != '"' && quote != '\'') {
        return syntaxError("Attribute value doesn't start with a quote");
    }
    char* const value = p + 1;
    markAt(value);
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
    cb.apszAttrs[cb.nNumAttrs] = name;
    cb.apszAttrs[cb.nNumAttrs + 1] = value;
    cb.nNumAttrs += 2;
    return PDS_PARSE_OK;
}

inline int ParseRun::startElement()
{
    const int code = EventSender(cb, path).start();
    if (code != PDS_PARSE_OK) {
        return code;
    }
    if (state == ST_TAG_EMPTY) {
        return endElement();
    }
    state = ST_CONTENT;
    return PDS_PARSE_OK;
}

inline int ParseRun::content()
{
    markAt(p);
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
        return cdataOpening();
    default:
        state = ST_TAG_NAME;
        return PDS_PARSE_OK;
    }
}

/** And the other two that begin alike. */
int ParseRun::cdataOpening()
{
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

inline int ParseRun::text()
{
    char* const data = p;
    if (skipsBlankText) {
        p = skipSpace(p, end);
        if (p == end || *p == '<') {
            return PDS_PARSE_OK;
        }
    }
    char* stop = findEither(p, end, '<', '&');
    char* ampersand = nullptr;
    if (*stop == '&') {
        ampersand = stop;
        stop = findByte(stop, end, '<');
    }
    const char stopped = *stop;
    *stop = '\0';
    p = stop;
    if (ampersand != nullptr && expandSpecialSymbols(ampersand, stop) != 0) {
        return syntaxError("Unrecognized special symbol");
    }
    int code = PDS_PARSE_OK;
    // Symbols may also stand for blanks, or for the end of the text.
    if (!skipsBlankText || ampersand == nullptr || *skip(CHAR_SPACE, data) != '\0') {
        code = EventSender(cb, path).text(data);
    }
    *stop = stopped;
    return code;
}

int ParseRun::cdata()
{
    char* const data = p;
    markAt(data);
    char* const behind = findBehind(data, end, "]]>");
    if (behind == nullptr) {
        return syntaxError("CDATA segment not terminated");
    }
    *(behind - 3) = '\0';
    p = behind;
    state = resumed;
    return EventSender(cb, path).cdata(data);
}

inline int ParseRun::endTag()
{
    char* const name = p;
    markAt(name);
    // Most often it is the tag of the innermost element, with a ">" at once.
    const std::size_t expected = path.tagLength();
    if (expected != 0 && static_cast<std::size_t>(end - name) > expected && name[expected] == '>'
        && std::memcmp(name, path.tag(), expected) == 0) {
        name[expected] = '\0';
        p = name + expected + 1;
        return endElement();
    }
    if (!isA(CHAR_NAME_START, *name)) {
        return syntaxError("Element name [End Tag] starts with an invalid character");
    }
    char* const stop = skip(CHAR_NAME, name);
    char* const close = skipSpace(stop, end);
    const char closing = *close;
    *stop = '\0';
    if (closing != '>') {
        return syntaxError("Element name [End Tag] contains an invalid character");
    }
    p = close + 1;
    if (!path.closeBy(name, static_cast<std::size_t>(stop - name))) {
        return syntaxError("Mismatched End Tag");
    }
    return endElement();
}

inline int ParseRun::endElement()
{
    const int code = EventSender(cb, path).end();
    if (code != PDS_PARSE_OK) {
        return code;
    }
    path.close();
    --cb.nTagDepth;
    if (cb.nCbStackNum > 0) {
        parsePopCommonCB(cb);
    }
    state = cb.nTagDepth != 0 ? ST_CONTENT : ST_TOP;
    return PDS_PARSE_OK;
}

String ParseRun::errorText() const
{
    const auto size = static_cast<std::size_t>(end - begin);
    const std::size_t shown = std::min(mark, size);
    return String(message) + " -- near offset " + std::to_string(mark) + ": "
           + String(begin + shown, std::min(SHOWN_BYTES, size - shown)) + "...";
}

}

int runParse(iParseCB& control, int flags)
{
    // Apart from the run, whose own state then has no address, and can stay in registers.
    ElementPath path(control.ssTagPath);
    AttributeNames names;
    ParseRun run(control, flags, path, names);
    int code = run.run();
    if (code == PDS_PARSE_E_SYNTAX) {
        try {
            control.ssErrMsg = run.errorText();
        } catch (const std::bad_alloc&) {
            code = PDS_PARSE_E_NO_MEMORY;
        }
    }
    control.bError = code != PDS_PARSE_OK ? 1 : 0;
    return code;
}

}
