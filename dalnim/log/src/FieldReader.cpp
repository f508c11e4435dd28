#include <dalnim/dalbase.hpp>

#include <dalnim/log/FieldReader.hpp>

#include <dalnim/log/src/FieldSyntax.hpp>

#include <algorithm>

namespace com::kor::dal::nim::log {

namespace {

constexpr std::size_t NOT_FOUND = std::string_view::npos;

std::size_t nameLength(std::string_view text) noexcept
{
    if (text.empty() || !FieldSyntax::isNameStart(text.front())) {
        return 0;
    }
    const auto* const end = std::find_if_not(text.begin(), text.end(), FieldSyntax::isNamePart);
    return static_cast<std::size_t>(end - text.begin());
}

/** Returns the length of the word that `text` begins with. */
std::size_t wordLength(std::string_view text) noexcept
{
    const auto* const end = std::find_if(text.begin(), text.end(), FieldSyntax::isWhiteSpace);
    return static_cast<std::size_t>(end - text.begin());
}

/** Returns the number that a hexadecimal digit denotes, or -1. */
int hexDigit(char c) noexcept
{
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

/** Reads one character, possibly an escape sequence, of a quoted value. */
struct Character
{
    /** @param text  not empty */
    explicit Character(std::string_view text) noexcept : value(text.front()), length(1)
    {
        if (value != '\\') {
            length = FieldSyntax::isEscaped(value) ? 0 : 1;
            return;
        }
        length = 2;
        switch (text.size() > 1 ? text[1] : '\0') {
        case '"':
            value = '"';
            break;
        case '\\':
            break;
        case 'n':
            value = '\n';
            break;
        case 't':
            value = '\t';
            break;
        case 'r':
            value = '\r';
            break;
        case 'x':
            readHex(text);
            break;
        default:
            length = 0;
        }
    }

    char value;
    /** Number of bytes in the text; 0 if the value cannot contain them. */
    std::size_t length;

private:
    void readHex(std::string_view text) noexcept
    {
        constexpr std::size_t LENGTH = sizeof "\\xHH" - 1;
        const int high = text.size() >= LENGTH ? hexDigit(text[2]) : -1;
        const int low = text.size() >= LENGTH ? hexDigit(text[3]) : -1;
        length = high >= 0 && low >= 0 ? LENGTH : 0;
        value = static_cast<char>(high * 16 + low);
    }
};

/**
 * Returns the length of the quoted value in front of its closing quote, or NOT_FOUND. The quote ends a word:
 * another name cannot be inside the quotes, since its own quotes would end them.
 */
std::size_t quotedLength(std::string_view text) noexcept
{
    std::size_t length = 0;
    while (length < text.size() && text[length] != '"') {
        const Character next(text.substr(length));
        if (next.length == 0) {
            return NOT_FOUND;
        }
        length += next.length;
    }
    const std::string_view after = text.substr(std::min(length + 1, text.size()));
    const bool isComplete =
        length < text.size() && (after.empty() || FieldSyntax::isWhiteSpace(after.front()));
    return isComplete ? length : NOT_FOUND;
}

}

bool FieldReader::next() noexcept
{
    while (!rest.empty()) {
        const std::size_t named = nameLength(rest);
        std::string_view after = rest.substr(named);
        if (named != 0 && !after.empty() && after.front() == '=') {
            after.remove_prefix(1);
            isQuoted = !after.empty() && after.front() == '"';
            if (isQuoted) {
                after.remove_prefix(1);
            }
            const std::size_t length = isQuoted ? quotedLength(after) : wordLength(after);
            if (length != NOT_FOUND && (isQuoted || !FieldSyntax::needsQuotes(after.substr(0, length)))) {
                fieldName = rest.substr(0, named);
                written = after.substr(0, length);
                rest = after.substr(length + (isQuoted ? 1 : 0));
                return true;
            }
        }
        rest.remove_prefix(wordLength(rest));
        const auto* const word = std::find_if_not(rest.begin(), rest.end(), FieldSyntax::isWhiteSpace);
        rest.remove_prefix(static_cast<std::size_t>(word - rest.begin()));
    }
    return false;
}

String FieldReader::value() const
{
    String text;
    if (!isQuoted) {
        text = written;
        return text;
    }
    text.reserve(written.size());
    for (std::string_view left = written; !left.empty();) {
        const Character next(left);
        text += next.value;
        left.remove_prefix(next.length);
    }
    return text;
}

bool FieldReader::hasValue(std::string_view other) const noexcept
{
    if (!isQuoted) {
        return written == other;
    }
    std::string_view left = written;
    while (!left.empty() && !other.empty()) {
        const Character next(left);
        if (next.value != other.front()) {
            return false;
        }
        left.remove_prefix(next.length);
        other.remove_prefix(1);
    }
    return left.empty() && other.empty();
}

}
