#include <dalnim/dalbase.hpp>

#include "ParseRun.hpp"

#include "AttributeNames.hpp"
#include "ElementPath.hpp"
#include "EventDispatcher.hpp"
#include "Symbols.hpp"
#include "TextScan.hpp"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace com::kor::dal::nim::xml {

namespace {

/** Bytes of the document that an error message quotes. */
constexpr std::size_t EXCERPT_BYTES = 16;

/** Bytes by which the error position of a premature end moves back. */
constexpr std::ptrdiff_t PREMATURE_END_BYTES = 8;

/** Length of "![CDATA[". Compatibility: so many bytes are skipped, whatever they are. */
constexpr std::ptrdiff_t CDATA_OPENING_BYTES = 8;

/**
 * Finds the end of a DOCTYPE: the first ">" that closes no "<". Quotes and brackets have no meaning.
 * @return the position past that ">", or null if the document ends first
 */
char* findEndOfDocType(char* pIn, char* end)
{
    std::size_t open = 0;
    while ((pIn = findEither(pIn, end, '<', '>')) != end) {
        const char c = *pIn++;
        if (c == '<') {
            ++open;
        } else if (open == 0) {
            return pIn;
        } else {
            --open;
        }
    }
    return nullptr;
}

/**
 * Restores the callback that was replaced for the element just closed, if any. Requires a non-empty stack.
 * Not inlined, because few parses replace callbacks, and the end of an element is a hot path.
 */
[[gnu::noinline]] void parsePopCommonCB(iParseCB& cb)
{
    const iCbStackItem& item = cb.pCbStack[cb.nCbStackNum - 1];
    if (item.nTagDepth > cb.nTagDepth) {
        cb.cbCommon = item.callbackFn;
        cb.pUserDataAlt = item.pUserDataAlt;
        --cb.nCbStackNum;
    }
}

/** Reserves entries for a name, a value and the terminating null. Returns false if memory runs out. */
bool reserveAttribute(iParseCB& cb)
{
    if (cb.nNumAttrs + 3 < cb.nMaxAttrs) {
        return true;
    }
    const std::size_t capacity = cb.nMaxAttrs == 0 ? INITIAL_ATTRS : 2 * cb.nMaxAttrs;
    auto** const grown =
        static_cast<char**>(std::malloc(capacity * sizeof(char*) + capacity / 2 * sizeof(std::size_t)));
    if (grown == nullptr) {
        return false;
    }
    auto* const lengths = reinterpret_cast<std::size_t*>(grown + capacity);
    std::copy_n(cb.apszAttrs, cb.nNumAttrs, grown);
    std::copy_n(cb.pValueLengths, cb.nNumAttrs / 2, lengths);
    std::free(cb.apszAttrs);
    cb.apszAttrs = grown;
    cb.pValueLengths = lengths;
    cb.nMaxAttrs = capacity;
    return true;
}

/**
 * One parse of the document in a control block. The document is edited in place: each string that a
 * callback receives is terminated by a NUL where it is.
 *
 * From the current position on, the only NUL is the one at `end`: the document arrived as NUL-terminated
 * strings, and only bytes that were already parsed are edited. Loops may therefore rely on it as a sentinel.
 *
 * Each parsing function takes the position where its construct starts, and returns the position past it, or
 * null if the parse ends with `code`.
 */
class ParseRun
{
public:
    ParseRun(iParseCB& control, int flags)
        : cb(control), path(control.ssTagPath, control.pBuffer + control.nBuffUsed), events(control, path),
          skipsWhitespaceText((flags & PDS_PARSE_F_SKIP_WS) != 0),
          reportsNullAttribute((flags & PDS_PARSE_F_NULL_ATTR) != 0), begin(control.pBuffer),
          end(control.pBuffer + control.nBuffUsed), errorPosition(begin)
    {
        cb.pElements = &path;
    }

    int run();
    /** Returns the message of the error, after run() has returned PDS_PARSE_E_SYNTAX. */
    String errorText() const;

private:
    [[gnu::noinline]] char* top(char* p);
    char* content(char* p);
    char* text(char* p);
    char* exclamation(char* p);
    char* startTag(char* p);
    char* attributes(char* p, bool& isEmpty);
    char* attribute(char* p);
    char* attributeValue(char* p);
    template <char quote>
    char* quotedValue(char* value);
    char* startElement(char* p, bool isEmpty);
    char* endTag(char* p);
    [[gnu::noinline]] char* generalEndTag(char* name);
    char* endElement(char* p);
    char* comment(char* p);
    char* cdata(char* p);
    [[gnu::noinline]] char* processingInstruction(char* p);
    [[gnu::noinline]] char* docType(char* p);

    void setErrorPosition(const char* position)
    {
        errorPosition = position;
    }

    char* fail(int result)
    {
        code = result;
        return nullptr;
    }
    [[gnu::noinline, gnu::cold]] char* syntaxError(const char* text)
    {
        message = text;
        return fail(PDS_PARSE_E_SYNTAX);
    }
    [[gnu::noinline, gnu::cold]] char* prematureEnd()
    {
        errorPosition -= std::min(errorPosition - begin, PREMATURE_END_BYTES);
        return syntaxError("Premature end of data stream (not at top-level)");
    }
    /** Returns `p` if the callback succeeded, otherwise fails with its result. */
    char* check(int result, char* p)
    {
        return result == PDS_PARSE_OK ? p : fail(result);
    }

    iParseCB& cb;
    ElementPath path;
    EventDispatcher events;
    AttributeNames attributeNames;
    const bool skipsWhitespaceText;
    const bool reportsNullAttribute;
    char* const begin;
    char* const end;
    bool hasRoot = false;
    int code = PDS_PARSE_OK;
    /** Position that a syntax error refers to. */
    const char* errorPosition;
    /** Number of bytes added to the reported offset, which may then exceed the length of the document. */
    std::ptrdiff_t errorOffset = 0;
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

/** Parses one piece of markup outside the root element. */
char* ParseRun::top(char* p)
{
    p = skipSpace(p, end);
    setErrorPosition(p);
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

/** Parses one piece of markup inside an element, and the text in front of it. */
inline char* ParseRun::content(char* p)
{
    if (*p != '<') {
        if (p == end) {
            return prematureEnd();
        }
        p = text(p);
        if (p == nullptr || p == end) {
            return p;
        }
    }
    setErrorPosition(p);
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
    setErrorPosition(p);
    char* const data = p;
    if (skipsWhitespaceText) {
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
    const char* dataEnd = stop;
    if (ampersand != nullptr) {
        dataEnd = expandSpecialSymbols(ampersand, stop);
        if (dataEnd == nullptr) {
            return syntaxError("Unrecognized special symbol");
        }
        // Character references can expand to white space, and to a NUL, which ends the text.
        if (skipsWhitespaceText && *skip(CHAR_SPACE, data) == '\0') {
            *stop = stopped;
            return stop;
        }
    }
    const int result = events.text(data, static_cast<std::size_t>(dataEnd - data));
    *stop = stopped;
    return check(result, stop);
}

/** Parses "<!" inside an element; `p` is the position of the "!". */
char* ParseRun::exclamation(char* p)
{
    if (startsWith(p, end, "!--")) {
        return comment(p + 3);
    }
    if (startsWith(p, end, "!DOCTYPE ")) {
        return docType(p + 9);
    }
    if (end - p < CDATA_OPENING_BYTES) {
        setErrorPosition(p);
        errorOffset = CDATA_OPENING_BYTES;
        return syntaxError("CDATA segment not terminated");
    }
    return cdata(p + CDATA_OPENING_BYTES);
}

char* ParseRun::comment(char* p)
{
    if (p == end) {
        return prematureEnd();
    }
    char* const next = findPast(p, end, "-->");
    return next != nullptr ? next : syntaxError("Comment not terminated");
}

char* ParseRun::cdata(char* p)
{
    if (p == end) {
        return prematureEnd();
    }
    setErrorPosition(p);
    char* const next = findPast(p, end, "]]>");
    if (next == nullptr) {
        return syntaxError("CDATA segment not terminated");
    }
    char* const stop = next - 3;
    *stop = '\0';
    return check(events.cdata(p, static_cast<std::size_t>(stop - p)), next);
}

/** Skips a processing instruction. Compatibility: one "?" may both open and close it, as in "<?>". */
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
    char* const next = findEndOfDocType(p, end);
    return next != nullptr ? next
                           : syntaxError("DOCTYPE tag is not properly terminated - reached End Of Document");
}

/** Parses a start tag; `p` is the position of its name. */
inline char* ParseRun::startTag(char* p)
{
    if (p == end) {
        return prematureEnd();
    }
    char* const name = p;
    setErrorPosition(name);
    if (!isA(CHAR_NAME_START, *name)) {
        return syntaxError("Element name [Start Tag] starts with an invalid character");
    }
    char* const stop = skip(CHAR_NAME, name);
    const char stopped = *stop;
    if (stopped != '>' && stopped != '/' && !isA(CHAR_SPACE, stopped)) {
        return syntaxError("Element name [Start Tag] contains an invalid character");
    }
    // Before the NUL is stored: loading a vector that overlaps a recent store of one byte stalls.
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

/** Parses the attributes and the end of a start tag. */
inline char* ParseRun::attributes(char* p, bool& isEmpty)
{
    attributeNames.clear();
    while (p != nullptr) {
        p = skip(CHAR_SPACE, p);
        if (p == end) {
            return prematureEnd();
        }
        setErrorPosition(p);
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
    if (reportsNullAttribute && cb.cbCommon != nullptr && std::strcmp(name, "NULL") == 0) {
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
    if (*p == '"') {
        return quotedValue<'"'>(p + 1);
    }
    return *p == '\'' ? quotedValue<'\''>(p + 1) : syntaxError("Attribute value doesn't start with a quote");
}

/** Parses a value in quotes; `value` is the position past the opening quote. */
template <char quote>
char* ParseRun::quotedValue(char* value)
{
    setErrorPosition(value);
    char* ampersand = nullptr;
    char* stop = value;
    while ((stop = findInValue<quote>(stop, end)) != end && *stop != quote) {
        if (*stop != '&') {
            *stop = ' ';
        } else if (ampersand == nullptr) {
            ampersand = stop;
        }
        ++stop;
    }
    if (stop == end) {
        return syntaxError("Attribute value doesn't end with a quote");
    }
    *stop = '\0';
    const char* const valueEnd = ampersand == nullptr ? stop : expandSpecialSymbols(ampersand, stop);
    if (valueEnd == nullptr) {
        return syntaxError("Unrecognized special symbol");
    }
    cb.apszAttrs[cb.nNumAttrs + 1] = value;
    cb.pValueLengths[cb.nNumAttrs / 2] = static_cast<std::size_t>(valueEnd - value);
    cb.nNumAttrs += 2;
    return stop + 1;
}

/**
 * Reports the start of an element. An empty-element tag is reported even if the document ends right after it.
 */
inline char* ParseRun::startElement(char* p, bool isEmpty)
{
    if (p == end && !isEmpty) {
        return prematureEnd();
    }
    const int result = events.start();
    return result == PDS_PARSE_OK && isEmpty ? endElement(p) : check(result, p);
}

/** Parses an end tag; `p` is the position of its name. */
inline char* ParseRun::endTag(char* p)
{
    if (p == end) {
        return prematureEnd();
    }
    char* const name = p;
    setErrorPosition(name);
    // Fast path: the name of the innermost element, followed immediately by ">".
    char* close = path.skipTag(name);
    if (close != nullptr && *close == '>') {
        *close = '\0';
    } else {
        close = generalEndTag(name);
        if (close == nullptr) {
            return nullptr;
        }
    }
    return endElement(close + 1);
}

/** Parses any other end tag: with white space after the name, or with a different name. Returns its ">". */
char* ParseRun::generalEndTag(char* name)
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
    if (!path.matchEndTag(name, static_cast<std::size_t>(stop - name))) {
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
    const auto offset = static_cast<std::size_t>(errorPosition - begin + errorOffset);
    const std::size_t shown = std::min(offset, size);
    return String(message) + " -- near offset " + std::to_string(offset) + ": "
           + String(begin + shown, std::min(EXCERPT_BYTES, size - shown)) + "...";
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
