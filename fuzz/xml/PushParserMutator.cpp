// Mutations of documents for PushParserFuzzer.cpp. They are aware of elements, attributes, references, text,
// CDATA sections, comments and processing instructions, and leave most of a well-formed document well-formed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fuzz/support/Mutation.hpp>

namespace {

using namespace std::string_view_literals;

constexpr std::size_t CHOICES = 3;

/** A tag, comment, processing instruction, CDATA section or text; or the zero byte between two documents. */
typedef std::string Piece;
typedef std::vector<Piece> Pieces;

bool beginsWith(const Piece& piece, std::string_view start)
{
    return piece.compare(0, start.size(), start) == 0;
}

bool isStartTag(const Piece& piece)
{
    return piece.size() > 1 && piece[0] == '<'
           && std::string_view("/!?").find(piece[1]) == std::string_view::npos;
}

bool isEndTag(const Piece& piece)
{
    return beginsWith(piece, "</");
}

bool isEmptyElement(const Piece& piece)
{
    return isStartTag(piece) && piece.size() > 2 && piece.compare(piece.size() - 2, 2, "/>") == 0;
}

/** Returns the end of the piece that begins at `start`; the end of the text if the piece is incomplete. */
std::size_t endOfPiece(const std::string& text, std::size_t start)
{
    const auto after = [&](std::string_view end) {
        const std::size_t found = text.find(end, start);
        return found == std::string::npos ? text.size() : found + end.size();
    };
    if (text[start] == '\0') {
        return start + 1;
    }
    if (text[start] != '<') {
        return std::min(text.find_first_of("<\0"sv, start), text.size());
    }
    if (text.compare(start, 4, "<!--") == 0) {
        return after("-->");
    }
    if (text.compare(start, 2, "<?") == 0) {
        return after("?>");
    }
    if (text.compare(start, 2, "<!") == 0 && text.compare(start, 9, "<!DOCTYPE") != 0) {
        return after("]]>");
    }
    return after(">");
}

Pieces piecesOf(const std::string& text)
{
    Pieces pieces;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = endOfPiece(text, start);
        pieces.push_back(text.substr(start, end - start));
        start = end;
    }
    return pieces;
}

std::string joined(const Pieces& pieces)
{
    std::string text;
    for (const Piece& piece : pieces) {
        text += piece;
    }
    return text;
}

/** A range of pieces: an element with its content, or a single piece. */
struct Span
{
    std::size_t begin;
    std::size_t end;
};

class DocumentMutator
{
public:
    DocumentMutator(Choices& choice, Pieces& document) : choices(choice), pieces(document) {}

    void change()
    {
        if (pieces.empty()) {
            pieces = newElement();
            return;
        }
        switch (choices.below(12)) {
        case 0:
        case 1:
            insert(choices.below(pieces.size() + 1), newContent());
            break;
        case 2:
            duplicate();
            break;
        case 3:
            erase(someSpan());
            break;
        case 4:
            exchange();
            break;
        case 5:
            wrap();
            break;
        case 6:
            rename();
            break;
        case 7:
        case 8:
        case 9:
            changeTag(choices.below(pieces.size()));
            break;
        case 10:
            changeText(pieces[choices.below(pieces.size())]);
            break;
        default:
            damage(pieces[choices.below(pieces.size())]);
        }
    }

private:
    Pieces::iterator iteratorAt(std::size_t at)
    {
        return pieces.begin() + static_cast<std::ptrdiff_t>(at);
    }

    Pieces copyOf(Span span)
    {
        return Pieces(iteratorAt(span.begin), iteratorAt(span.end));
    }

    void insert(std::size_t at, const Pieces& added)
    {
        pieces.insert(iteratorAt(at), added.begin(), added.end());
    }

    void erase(Span span)
    {
        pieces.erase(iteratorAt(span.begin), iteratorAt(span.end));
    }

    Span someSpan()
    {
        const std::size_t begin = choices.below(pieces.size());
        // Sometimes a single tag of an element.
        return choices.oneIn(8) ? Span{begin, begin + 1} : spanFrom(begin);
    }

    Span spanFrom(std::size_t begin) const
    {
        if (!isStartTag(pieces[begin]) || isEmptyElement(pieces[begin])) {
            return {begin, begin + 1};
        }
        std::size_t depth = 0;
        for (std::size_t at = begin; at < pieces.size(); ++at) {
            if (isEndTag(pieces[at])) {
                --depth;
            } else if (isStartTag(pieces[at]) && !isEmptyElement(pieces[at])) {
                ++depth;
            }
            if (depth == 0) {
                return {begin, at + 1};
            }
        }
        return {begin, begin + 1};
    }

    /** Inserts copies of a span after it or anywhere; sometimes many copies if it is small. */
    void duplicate()
    {
        const Span span = someSpan();
        const Pieces copy = copyOf(span);
        const std::size_t at = choices.oneIn(2) ? span.end : choices.below(pieces.size() + 1);
        const std::size_t times = choices.oneIn(6) && copy.size() < 4 ? choices.below(40) : 1;
        for (std::size_t i = 0; i < times; ++i) {
            insert(at, copy);
        }
    }

    void exchange()
    {
        Span first = someSpan();
        Span second = someSpan();
        if (first.begin > second.begin) {
            std::swap(first, second);
        }
        if (first.end > second.begin) {
            return;
        }
        const Pieces front = copyOf(first);
        const Pieces back = copyOf(second);
        erase(second);
        insert(second.begin, front);
        erase(first);
        insert(first.begin, back);
    }

    /** Encloses a span in a new element, or in many nested ones. */
    void wrap()
    {
        const Span span = someSpan();
        const std::string name = newName();
        const std::size_t times = choices.oneIn(6) ? 1 + choices.below(50) : 1;
        insert(span.end, Pieces(times, "</" + name + optionalWhiteSpace() + ">"));
        insert(span.begin, Pieces(times, "<" + name + optionalWhiteSpace() + ">"));
    }

    /** Renames an element: its start tag and, usually, its end tag. */
    void rename()
    {
        const Span span = someSpan();
        if (!isStartTag(pieces[span.begin])) {
            return;
        }
        const std::string name = newName();
        Piece& start = pieces[span.begin];
        start.replace(1, nameEnd(start) - 1, name);
        Piece& last = pieces[span.end - 1];
        if (isEndTag(last) && !choices.oneIn(6)) {
            last = "</" + name + optionalWhiteSpace() + ">";
        }
    }

    static std::size_t nameEnd(const Piece& tag)
    {
        return std::min(tag.find_first_of(" \t\n\r/>", 1), tag.size());
    }

    /** Changes the attributes of the next start tag. */
    void changeTag(std::size_t from)
    {
        const auto found = std::find_if(iteratorAt(from), pieces.end(), isStartTag);
        if (found == pieces.end()) {
            return;
        }
        Piece& tag = *found;
        const std::vector<Span> attributes = attributesOf(tag);
        const std::size_t end = nameEnd(tag);
        if (attributes.empty() || choices.oneIn(3)) {
            const std::size_t times = choices.oneIn(8) ? choices.below(60) : 1;
            for (std::size_t i = 0; i < times; ++i) {
                tag.insert(end, attribute());
            }
            return;
        }
        const Span one = attributes[choices.below(attributes.size())];
        const std::string text = tag.substr(one.begin, one.end - one.begin);
        switch (choices.below(5)) {
        case 0:
            tag.insert(one.end, text);
            break;
        case 1:
            tag.erase(one.begin, text.size());
            break;
        case 2:
            // Moves the attribute to the front.
            tag.erase(one.begin, text.size());
            tag.insert(end, text);
            break;
        case 3:
            tag.replace(one.begin, text.size(), attribute());
            break;
        default:
            tag.insert(std::min(tag.size(), text.find('=') + one.begin + 2), characters());
        }
    }

    /** Returns the attributes of a tag, each with the white space before it. */
    static std::vector<Span> attributesOf(const Piece& tag)
    {
        std::vector<Span> attributes;
        std::size_t begin = nameEnd(tag);
        for (std::size_t equals; (equals = tag.find('=', begin)) != std::string::npos;) {
            if (equals + 1 == tag.size()) {
                break;
            }
            const std::size_t end = tag.find(tag[equals + 1], equals + 2);
            if (end == std::string::npos) {
                break;
            }
            attributes.push_back({begin, end + 1});
            begin = end + 1;
        }
        return attributes;
    }

    void changeText(Piece& piece)
    {
        const bool is_text = piece[0] != '<';
        piece.insert(choices.below(piece.size() + 1), is_text ? characters() : token());
    }

    void damage(Piece& piece)
    {
        switch (choices.below(4)) {
        case 0:
            piece.pop_back();
            break;
        case 1:
            piece.erase(0, 1);
            break;
        default:
            mutateBytes(piece);
        }
        if (piece.empty()) {
            pieces.erase(std::find(pieces.begin(), pieces.end(), piece));
        }
    }

    Pieces newElement()
    {
        const std::string name = newName();
        const std::string start = "<" + name + (choices.oneIn(2) ? attribute() : "") + optionalWhiteSpace();
        if (choices.oneIn(3)) {
            return {start + "/>"};
        }
        return {start + ">", characters(), "</" + name + optionalWhiteSpace() + ">"};
    }

    Pieces newContent()
    {
        switch (choices.below(7)) {
        case 0:
            return {"<!--" + choices.oneOf({"", " c ", "-", "--", ">", "<a>", "\xff"}) + "-->"};
        case 1:
            return {"<!" + choices.oneOf({"[CDATA[", "[cdata[", "1234567"})
                    + choices.oneOf({"", "x", "<b>&c;", "]", "]]", "\x80"}) + "]]>"};
        case 2:
            return {choices.oneOf({"<?pi?>", "<?xml version=\"1.0\"?>", "<?>", "<?a > ?>"})};
        case 3:
            return {choices.oneOf({"<!DOCTYPE a>", "<!DOCTYPE a [<!ELEMENT a (b)>]>", "<!DOCTYPE x <y> >"})};
        case 4:
            return {characters()};
        case 5:
            // Starts another document on the same handle.
            return choices.oneIn(4) ? Pieces{Piece(1, '\0')} : Pieces{whiteSpace()};
        default:
            return newElement();
        }
    }

    std::string attribute()
    {
        const std::string quote = choices.oneOf({"\"", "'"});
        const std::string name = choices.oneIn(2) ? newName() : "k" + std::to_string(choices.below(100));
        std::string value = choices.oneIn(3) ? "" : characters();
        value.erase(std::remove(value.begin(), value.end(), quote[0]), value.end());
        return (choices.oneIn(8) ? "" : whiteSpace()) + name + "=" + quote + value + quote;
    }

    std::string newName()
    {
        return choices.oneOf({"a", "b", "ab", "a:b", "_x", "n-1.0", "NULL", "!", "?q", "fifteen-letters",
                              "sixteen--letters", "seventeen-letters",
                              "a-name-of-more-than-32-letters-for-sure"});
    }

    std::string characters()
    {
        if (choices.oneIn(10)) {
            return std::string(choices.below(100), choices.oneIn(2) ? ' ' : 'x');
        }
        if (choices.oneIn(3)) {
            return choices.oneOf({"&lt;", "&gt;", "&quot;", "&apos;", "&amp;", "&#65;", "&#;", "&#0;",
                                  "&#32;", "&#999;", "&#x41;", "&", "&lt", "&LT;", "&;"});
        }
        return choices.oneOf({"x", "text", "]]>", "--", "'", "\"", "=", "/", ">", "\xc3\xa4", "\xff", "\n",
                              "\r", "\t", "\x01"});
    }

    std::string token()
    {
        return choices.oneOf({"<",          ">",  "/",  "=",   "\"",  "'",    "&",    "!",
                              "?",          "-",  "]",  "]]>", "-->", "?>",   "<!--", "<![CDATA[",
                              "<!DOCTYPE ", "</", "/>", " ",   "\n",  "\0"sv, "\xff", "a"});
    }

    std::string whiteSpace()
    {
        return choices.oneOf({" ", "\t", "\n", "\r\n", "\v", "\f", "  "});
    }

    std::string optionalWhiteSpace()
    {
        return choices.oneIn(2) ? "" : whiteSpace();
    }

    Choices& choices;
    Pieces& pieces;
};

}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned int seed)
{
    Choices choices(seed);
    if (size < CHOICES || choices.oneIn(5)) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    std::string input(reinterpret_cast<const char*>(data), CHOICES);
    if (choices.oneIn(5)) {
        input[choices.below(CHOICES)] = static_cast<char>(choices.below(256));
    }
    Pieces pieces = piecesOf(std::string(reinterpret_cast<const char*>(data) + CHOICES, size - CHOICES));
    DocumentMutator mutator(choices, pieces);
    for (std::size_t changes = 1 + choices.below(3); changes > 0; --changes) {
        mutator.change();
    }
    return store(input + joined(pieces), data, max_size);
}

/** Joins the start of one input and the end of the other, split at the same piece or at any piece. */
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* data1, std::size_t size1,
                                                 const std::uint8_t* data2, std::size_t size2,
                                                 std::uint8_t* out, std::size_t max_out_size,
                                                 unsigned int seed)
{
    if (size1 <= CHOICES || size2 <= CHOICES) {
        return 0;
    }
    Choices choices(seed);
    Pieces first = piecesOf(std::string(reinterpret_cast<const char*>(data1) + CHOICES, size1 - CHOICES));
    const Pieces second =
        piecesOf(std::string(reinterpret_cast<const char*>(data2) + CHOICES, size2 - CHOICES));
    first.resize(choices.below(first.size() + 1));
    const std::size_t from =
        choices.oneIn(2) ? std::min(first.size(), second.size()) : choices.below(second.size() + 1);
    first.insert(first.end(), second.begin() + static_cast<std::ptrdiff_t>(from), second.end());
    return store(std::string(reinterpret_cast<const char*>(data1), CHOICES) + joined(first), out,
                 max_out_size);
}
