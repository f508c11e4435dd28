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
constexpr std::ptrdiff_t EARLY_END_BYTES = 8;

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
 * One run over the text of a control block, which it edits: what is delivered is ended by a NUL in its
 * place.
 *
 * Ahead of the position the text has no NUL but the one behind its end, since it arrived as
 * NUL-terminated pieces and only what is passed is edited.
 *
 * Each step takes the position of what it reads, and returns the position behind, or null when the
 * parse ends with `code`.
 */
class ParseRun
{
public:
    ParseRun(iParseCB& control, int flags)
        : cb(control), path(control.ssTagPath, control.pBuffer + control.nBuffUsed), events(control, path),
          skipsBlankText((flags & PDS_PARSE_F_SKIP_WS) != 0),
          tellsNullAttribute((flags & PDS_PARSE_F_NULL_ATTR) != 0), begin(control.pBuffer),
          end(control.pBuffer + control.nBuffUsed), mark(begin)
    {
    }

    int run();
    /** What is wrong, where run() returned PDS_PARSE_E_SYNTAX. */
    String errorText() const;

private:
    char* top(char* p);
    char* content(char* p);
    char* text(char* p);
    char* exclamation(char* p);
    char* startTag(char* p);
    char* attributes(char* p, bool& isEmpty);
    char* attribute(char* p);
    char* attributeValue(char* p);
    char* startElement(char* p, bool isEmpty);
    char* endTag(char* p);
    char* unusualEndTag(char* name);
    char* endElement(char* p);
    char* comment(char* p);
    char* cdata(char* p);
    char* processingInstruction(char* p);
    char* docType(char* p);

    void markAt(const char* position)
    {
        mark = position;
    }

    char* fail(int result)
    {
        code = result;
        return nullptr;
    }
    char* syntaxError(const char* text)
    {
        message = text;
        return fail(PDS_PARSE_E_SYNTAX);
    }
    char* earlyEnd()
    {
        mark -= std::min(mark - begin, EARLY_END_BYTES);
        return syntaxError("Premature end of data stream (not at top-level)");
    }
    /** Goes on with a callback behind it. */
    char* check(int result, char* p)
    {
        return result == PDS_PARSE_OK ? p : fail(result);
    }

    iParseCB& cb;
    ElementPath path;
    EventSender events;
    AttributeNames attributeNames;
    const bool skipsBlankText;
    const bool tellsNullAttribute;
    char* const begin;
    char* const end;
    bool hasRoot = false;
    int code = PDS_PARSE_OK;
    /** What an error names the offset of, and what is to be added: that may lie behind the end. */
    const char* mark;
    std::ptrdiff_t behindMark = 0;
    const char* message = "";
};

int ParseRun::run()
{
    char* p = begin;
    do {
        p = top(p);
        while (p != nullptr && cb.nTagDepth != 0) {
            p = content(p);
        }
    } while (p != nullptr && p != end);
    return code;
}

/** Outside of the root element. */
char* ParseRun::top(char* p)
{
    p = skipSpace(p, end);
    markAt(p);
    if (p == end) {
        return p;
    }
    if (*p != '<') {
        return syntaxError("Invalid data contained outside a top-level Element");
    }
    if (startsWith(p, end, "<!--")) {
        return comment(p + 4);
    }
    if (p[1] == '?') {
        return processingInstruction(p);
    }
    if (startsWith(p, end, "<!DOCTYPE ")) {
        return docType(p + 10);
    }
    if (hasRoot) {
        return syntaxError("Multiple top-level Elements encountered");
    }
    hasRoot = true;
    return startTag(p + 1);
}

/** Inside of an element: a text, or one piece of markup. */
inline char* ParseRun::content(char* p)
{
    if (*p != '<') {
        return p == end ? earlyEnd() : text(p);
    }
    markAt(p);
    *p++ = '\0';
    switch (*p) {
    case '/':
        return endTag(p + 1);
    case '!':
        return exclamation(p);
    case '?':
        return processingInstruction(p);
    default:
        return startTag(p);
    }
}

inline char* ParseRun::text(char* p)
{
    markAt(p);
    char* const data = p;
    if (skipsBlankText) {
        p = skipSpace(p, end);
        if (*p == '<' || p == end) {
            return p;
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
    if (ampersand != nullptr) {
        if (expandSpecialSymbols(ampersand, stop) != 0) {
            return syntaxError("Unrecognized special symbol");
        }
        // Symbols may also stand for blanks, or for the end of the text.
        if (skipsBlankText && *skip(CHAR_SPACE, data) == '\0') {
            *stop = stopped;
            return stop;
        }
    }
    const int result = events.text(data);
    *stop = stopped;
    return check(result, stop);
}

/** In content, from the "!". */
char* ParseRun::exclamation(char* p)
{
    if (startsWith(p, end, "!--")) {
        return comment(p + 3);
    }
    if (startsWith(p, end, "!DOCTYPE ")) {
        return docType(p + 9);
    }
    if (end - p < CDATA_OPENING_BYTES) {
        markAt(p);
        behindMark = CDATA_OPENING_BYTES;
        return syntaxError("CDATA segment not terminated");
    }
    return cdata(p + CDATA_OPENING_BYTES);
}

char* ParseRun::comment(char* p)
{
    if (p == end) {
        return earlyEnd();
    }
    char* const behind = findBehind(p, end, "-->");
    return behind != nullptr ? behind : syntaxError("Comment not terminated");
}

char* ParseRun::cdata(char* p)
{
    if (p == end) {
        return earlyEnd();
    }
    markAt(p);
    char* const behind = findBehind(p, end, "]]>");
    if (behind == nullptr) {
        return syntaxError("CDATA segment not terminated");
    }
    *(behind - 3) = '\0';
    return check(events.cdata(p), behind);
}

/** The "?" that opens it may be the one that closes it. */
char* ParseRun::processingInstruction(char* p)
{
    while ((p = findByte(p, end, '?')) != end) {
        ++p;
        if (*p == '>') {
            return p + 1;
        }
    }
    return syntaxError("Invalid processing instruction: '<?' without a matching '?>'");
}

char* ParseRun::docType(char* p)
{
    char* behind = nullptr;
    if (findEndOfDocType(p, end, &behind) != 0) {
        return syntaxError("DOCTYPE tag is not properly terminated - reached End Of Document");
    }
    return behind;
}

/** From its name. */
inline char* ParseRun::startTag(char* p)
{
    if (p == end) {
        return earlyEnd();
    }
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
    // Ahead of the NUL, for the same reason as in the path.
    if (!path.open(name, static_cast<std::size_t>(stop - name), cb.nTagDepth == 0)) {
        return fail(PDS_PARSE_E_NO_MEMORY);
    }
    *stop = '\0';
    p = stop + 1;
    ++cb.nTagDepth;
    cb.nNumAttrs = 0;
    bool isEmpty = false;
    if (stopped != '>') {
        if (stopped == '/' && *p == '>') {
            isEmpty = true;
            ++p;
        } else {
            p = attributes(p, isEmpty);
            if (p == nullptr) {
                return nullptr;
            }
        }
    }
    return startElement(p, isEmpty);
}

/** And the end of their tag. */
inline char* ParseRun::attributes(char* p, bool& isEmpty)
{
    attributeNames.clear();
    while (p != nullptr) {
        p = skip(CHAR_SPACE, p);
        if (p == end) {
            return earlyEnd();
        }
        markAt(p);
        if (*p == '>') {
            return p + 1;
        }
        if (*p == '/' && p[1] == '>') {
            isEmpty = true;
            return p + 2;
        }
        p = attribute(p);
    }
    return nullptr;
}

inline char* ParseRun::attribute(char* p)
{
    char* const name = p;
    if (!isA(CHAR_NAME_START, *name)) {
        return syntaxError("Attribute name  starts with an invalid character");
    }
    char* const stop = skip(CHAR_NAME, name);
    if (*stop != '=') {
        return syntaxError("Attribute name doesn't terminate with an '='");
    }
    *stop = '\0';
    if (tellsNullAttribute && cb.cbCommon != nullptr && std::strcmp(name, "NULL") == 0) {
        const int result = events.nullAttribute();
        if (result != PDS_PARSE_OK) {
            return fail(result);
        }
    }
    try {
        if (!attributeNames.add(name, static_cast<std::size_t>(stop - name), cb.apszAttrs, cb.nNumAttrs)) {
            return syntaxError("Duplicate attribute name");
        }
    } catch (const std::bad_alloc&) {
        return fail(PDS_PARSE_E_NO_MEMORY);
    }
    if (!reserveAttribute(cb)) {
        return fail(PDS_PARSE_E_NO_MEMORY);
    }
    cb.apszAttrs[cb.nNumAttrs] = name;
    return attributeValue(stop + 1);
}

inline char* ParseRun::attributeValue(char* p)
{
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
    if (ampersand != nullptr && expandSpecialSymbols(ampersand, stop) != 0) {
        return syntaxError("Unrecognized special symbol");
    }
    cb.apszAttrs[cb.nNumAttrs + 1] = value;
    cb.nNumAttrs += 2;
    return stop + 1;
}

/** Behind its start tag. One that is a tag alone is told also where the text ends behind it. */
inline char* ParseRun::startElement(char* p, bool isEmpty)
{
    if (p == end && !isEmpty) {
        return earlyEnd();
    }
    const int result = events.start();
    return result == PDS_PARSE_OK && isEmpty ? endElement(p) : check(result, p);
}

/** From its name. */
inline char* ParseRun::endTag(char* p)
{
    if (p == end) {
        return earlyEnd();
    }
    char* const name = p;
    markAt(name);
    // Most often it is the tag of the innermost element, with a ">" at once.
    char* close = path.skipTag(name);
    if (close != nullptr && *close == '>') {
        *close = '\0';
    } else {
        close = unusualEndTag(name);
        if (close == nullptr) {
            return nullptr;
        }
    }
    return endElement(close + 1);
}

/** The ">" of an end tag with a blank in it, or of one that is not the innermost element's. */
char* ParseRun::unusualEndTag(char* name)
{
    if (!isA(CHAR_NAME_START, *name)) {
        return syntaxError("Element name [End Tag] starts with an invalid character");
    }
    char* const stop = skip(CHAR_NAME, name);
    char* const close = skip(CHAR_SPACE, stop);
    const char closing = *close;
    *stop = '\0';
    if (closing != '>') {
        return syntaxError("Element name [End Tag] contains an invalid character");
    }
    if (!path.closeBy(name, static_cast<std::size_t>(stop - name))) {
        return syntaxError("Mismatched End Tag");
    }
    return close;
}

inline char* ParseRun::endElement(char* p)
{
    const int result = events.end();
    if (result != PDS_PARSE_OK) {
        return fail(result);
    }
    path.close();
    --cb.nTagDepth;
    if (cb.nCbStackNum > 0) {
        parsePopCommonCB(cb);
    }
    return p;
}

String ParseRun::errorText() const
{
    const auto size = static_cast<std::size_t>(end - begin);
    const auto offset = static_cast<std::size_t>(mark - begin + behindMark);
    const std::size_t shown = std::min(offset, size);
    return String(message) + " -- near offset " + std::to_string(offset) + ": "
           + String(begin + shown, std::min(SHOWN_BYTES, size - shown)) + "...";
}

}

int runParse(iParseCB& control, int flags)
{
    ParseRun run(control, flags);
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
