#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/PropertiesReader.hpp>

#include <dalnim/io/src/PropertiesText.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>
#include <qv/rtlapi/RX_String.hpp>
#include <qv/rtlapi/src/userCode.hpp>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::io {

namespace {

RX_Filespec parsePath(const String& path)
{
    return RX_Filespec(RX_String(path.data(), path.size()), RX_Filespec::READ, RX_Filespec::DEFER_CHECK);
}

String toString(const RX_String& text)
{
    return String(text.data(), text.length());
}

}

PropertiesReader::PropertiesReader(std::istream& is, const String& filepath, Properties::Severity severity)
    : input(is), exception_mask(is.exceptions()), sev(severity)
{
    const RX_Filespec spec = parsePath(filepath);
    name = toString(spec.basename());
    directory = toString(spec.directory());
    if (input.good()) {
        // Otherwise, if memory ran out, getline() would report the end of the file.
        input.exceptions(exception_mask | std::ios_base::badbit);
    }
}

PropertiesReader::~PropertiesReader()
{
    try {
        input.exceptions(exception_mask);
    } catch (const std::ios_base::failure&) {
        // Restoring the mask throws if the stream has failed; that was reported before.
    }
}

PropertiesReader::LineKind PropertiesReader::read()
{
    used = 0;
    significant = 0;
    bool continuation = false;

    while (readLine()) {
        ++line_number;
        const std::size_t start = skipSpace(0);
        if (start == line.size()) {
            break;
        }
        const char first = line[start];
        if (first == '%') {
            if (continuation) {
                break;
            }
            return readPragma(start + 1);
        }
        if (!continuation && (first == '#' || first == '!')) {
            break;
        }
        continuation = decode(start);
        if (!continuation) {
            break;
        }
    }
    return used == 0 ? NOTHING : PROPERTY;
}

/** Returns false at end of file. A read error counts as end of file unless the stream throws on `badbit`. */
bool PropertiesReader::readLine()
{
    try {
        return static_cast<bool>(std::getline(input, line));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        if (qv::isThreadEnding() || (exception_mask & std::ios_base::badbit) != 0 || !input.bad()) {
            throw;
        }
        return false;
    }
}

String PropertiesReader::position() const
{
    return name + ":" + std::to_string(line_number);
}

/** Appends the line from `pos` on to the logical line. Returns true if the next line continues it. */
bool PropertiesReader::decode(std::size_t pos)
{
    logical.resize(std::max(logical.size(), used + (line.size() - pos)));
    for (;;) {
        const std::size_t escape = std::min(line.find('\\', pos), line.size());
        copyPlain(pos, escape);
        if (escape == line.size()) {
            return false;
        }
        if (escape + 1 == line.size()) {
            return true;
        }
        pos = decodeEscape(escape + 1);
    }
}

void PropertiesReader::copyPlain(std::size_t pos, std::size_t end)
{
    std::memcpy(logical.data() + used, line.data() + pos, end - pos);
    std::size_t trimmed = end;
    while (trimmed > pos && char_is_space(line[trimmed - 1])) {
        --trimmed;
    }
    if (trimmed > pos) {
        significant = used + (trimmed - pos);
    }
    used += end - pos;
}

void PropertiesReader::appendByte(unsigned int byte)
{
    logical[used++] = static_cast<char>(static_cast<unsigned char>(byte));
    significant = used;
}

/** Decodes the escape sequence at `pos`, after its backslash. Returns the position of its end. */
std::size_t PropertiesReader::decodeEscape(std::size_t pos)
{
    const char c = line[pos];
    if (c == 'u') {
        return decodeUnicode(pos + 1);
    }
    if (c == 'x') {
        return decodeHex(pos + 1);
    }
    if (char_is_octal(c)) {
        return decodeOctal(pos);
    }
    appendByte(static_cast<unsigned char>(char_to_escaped_char(c)));
    return pos + 1;
}

std::size_t PropertiesReader::decodeUnicode(std::size_t pos)
{
    constexpr std::size_t DIGITS = 4;
    if (line.size() - pos < DIGITS) {
        fail(": End-of-line encountered in unicode escape sequence.");
    }
    const String digits = line.substr(pos, DIGITS);
    unsigned int value = 0;
    for (const char digit : digits) {
        if (!char_is_hex(digit)) {
            fail(": Invalid unicode escape sequence '\\u" + digits + "'.");
        }
        value = value * 16 + hex_char_to_nibble(digit);
    }
    if (value > 255) {
        fail(": Unicode escape sequence '\\u" + digits + "' exceeds capacity of single byte character.");
    }
    appendByte(value);
    return pos + DIGITS;
}

std::size_t PropertiesReader::decodeHex(std::size_t pos)
{
    if (pos == line.size()) {
        fail(": End-of-line encountered in hex escape sequence.");
    }
    if (!char_is_hex(line[pos])) {
        fail(String(": Invalid hex escape sequence '\\x") + line[pos] + "'.");
    }
    unsigned int value = hex_char_to_nibble(line[pos++]);
    if (pos < line.size() && char_is_hex(line[pos])) {
        value = value * 16 + hex_char_to_nibble(line[pos++]);
    }
    appendByte(value);
    return pos;
}

/** Decodes up to three octal digits, or up to two if the first one is above "3": the value fits a byte. */
std::size_t PropertiesReader::decodeOctal(std::size_t pos)
{
    const std::size_t end = std::min(line.size(), pos + (line[pos] <= '3' ? 3 : 2));
    unsigned int value = 0;
    while (pos < end && char_is_octal(line[pos])) {
        value = value * 8 + hex_char_to_nibble(line[pos++]);
    }
    appendByte(value);
    return pos;
}

/** Evaluates a line from the position after its "%". Lines whose first word is not "pragma" are ignored. */
PropertiesReader::LineKind PropertiesReader::readPragma(std::size_t pos)
{
    std::size_t end = wordEnd(pos);
    if (end == line.size() || line.compare(pos, end - pos, "pragma") != 0) {
        return NOTHING;
    }

    pos = skipSpace(end);
    end = wordEnd(pos);
    const String command = line.substr(pos, end - pos);
    const String unknown_command = ": unknown %pragma command: \"" + command + "\"";
    if (end == line.size()) {
        fail(unknown_command);
    }

    pos = skipSpace(end);
    end = wordEnd(pos);
    const String argument = line.substr(pos, end - pos);
    if (skipSpace(end) != line.size()) {
        fail(": invalid number of args for %pragma command");
    }

    if (command == "include") {
        setInclude(argument);
        return INCLUDE;
    }
    if (command == "severity") {
        setSeverity(argument);
        return NOTHING;
    }
    fail(unknown_command);
}

void PropertiesReader::setSeverity(const String& argument)
{
    if (argument == "error") {
        sev = Properties::SEV_ERROR;
    } else if (argument == "warning") {
        sev = Properties::SEV_WARNING;
    } else if (argument == "note") {
        sev = Properties::SEV_NOTE;
    } else {
        fail(": invalid arg for %pragma severity: \"" + argument + "\"");
    }
}

void PropertiesReader::setInclude(const String& argument)
{
    if (argument.size() < 2 || argument.front() != '"' || argument.back() != '"') {
        fail(": invalid arg for %pragma include: \"" + argument + "\"");
    }
    const RX_Filespec spec = parsePath(directory + argument.substr(1, argument.size() - 2));
    include = toString(spec.directory()) + toString(spec.basename());
}

std::size_t PropertiesReader::skipSpace(std::size_t pos) const
{
    while (pos < line.size() && char_is_space(line[pos])) {
        ++pos;
    }
    return pos;
}

std::size_t PropertiesReader::wordEnd(std::size_t pos) const
{
    while (pos < line.size() && !char_is_space(line[pos])) {
        ++pos;
    }
    return pos;
}

void PropertiesReader::fail(const String& text) const
{
    throw std::invalid_argument("ERROR: " + position() + text);
}

}
