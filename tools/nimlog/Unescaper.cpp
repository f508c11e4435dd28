#include "Unescaper.hpp"

namespace nimlog {

namespace {

/** Reads a lower-case hexadecimal digit, as the log writes it. Returns false if it is none. */
bool readHexDigit(char c, int& into)
{
    const bool isDecimal = c >= '0' && c <= '9';
    into = isDecimal ? c - '0' : c - 'a' + 10;
    return isDecimal || (c >= 'a' && c <= 'f');
}

/** Reads an escape sequence at the start of a string. Returns its length, or 0 if there is none. */
std::size_t readEscape(std::string_view text, char& into)
{
    static const std::string_view LETTERS = "abfnrv\\";
    static const std::string_view BYTES = "\a\b\f\n\r\v\\";
    if (text.size() < 2) {
        return 0;
    }
    const std::size_t letter = LETTERS.find(text[1]);
    if (letter != std::string_view::npos) {
        into = BYTES[letter];
        return 2;
    }
    int high = 0;
    int low = 0;
    if (text[1] != 'x' || text.size() < 4 || !readHexDigit(text[2], high) || !readHexDigit(text[3], low)) {
        return 0;
    }
    into = static_cast<char>(high * 16 + low);
    return 4;
}

void appendUnescaped(std::string& to, std::string_view text)
{
    for (std::size_t at; (at = text.find('\\')) != std::string_view::npos;) {
        to += text.substr(0, at);
        text.remove_prefix(at);
        char byte = '\\';
        const std::size_t length = readEscape(text, byte);
        to += byte;
        text.remove_prefix(length == 0 ? 1 : length);
    }
    to += text;
}

std::size_t unescapedSize(std::string_view text)
{
    std::string unescaped;
    appendUnescaped(unescaped, text);
    return unescaped.size();
}

}

void Unescaper::consume(const Record& record)
{
    const std::string_view escaped = record.whole;
    if (escaped.find('\\') == std::string_view::npos) {
        next.consume(record);
        return;
    }
    text.clear();
    appendUnescaped(text, escaped);
    Record unescaped = record;
    unescaped.whole = text;
    const std::string_view prefix = escaped.substr(0, record.fields.length);
    unescaped.fields.length = unescapedSize(prefix);
    forEachView(unescaped.fields, [&](std::string_view& view) {
        const auto begin = static_cast<std::size_t>(view.data() - escaped.data());
        view = std::string_view(text).substr(unescapedSize(escaped.substr(0, begin)), unescapedSize(view));
    });
    next.consume(unescaped);
}

}
