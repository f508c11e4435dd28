#include <dalnim/dalbase.hpp>

#include <dalnim/log/FieldWriter.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/src/FieldSyntax.hpp>
#include <dalnim/log/src/HexDigits.hpp>

#include <algorithm>
#include <charconv>
#include <locale>
#include <ostream>

namespace com::kor::dal::nim::log {

namespace {

void put(std::ostream& os, std::string_view text)
{
    os.write(text.data(), static_cast<std::streamsize>(text.size()));
}

/** Writes the name, with "_" in place of each character that a name cannot have. */
void putName(std::ostream& os, std::string_view name)
{
    const bool startsWell = !name.empty() && FieldSyntax::isNameStart(name.front());
    if (!startsWell) {
        put(os, "_");
        name.remove_prefix(name.empty() ? 0 : 1);
    }
    while (!name.empty()) {
        const auto* const bad = std::find_if_not(name.begin(), name.end(), FieldSyntax::isNamePart);
        const auto length = static_cast<std::size_t>(bad - name.begin());
        put(os, name.substr(0, length));
        name.remove_prefix(length);
        if (!name.empty()) {
            put(os, "_");
            name.remove_prefix(1);
        }
    }
}

void putEscaped(std::ostream& os, char c)
{
    const auto byte = static_cast<unsigned char>(c);
    const char named = c == '\n'                   ? 'n'
                       : c == '\t'                 ? 't'
                       : c == '\r'                 ? 'r'
                       : FieldSyntax::isControl(c) ? 'x'
                                                   : c;
    const char sequence[] = {'\\', named, HEX_DIGITS[byte >> 4], HEX_DIGITS[byte & 0xf]};
    put(os, std::string_view(sequence, named == 'x' ? 4 : 2));
}

void putQuoted(std::ostream& os, std::string_view value)
{
    put(os, "\"");
    while (!value.empty()) {
        const auto* const escaped = std::find_if(value.begin(), value.end(), FieldSyntax::isEscaped);
        const auto length = static_cast<std::size_t>(escaped - value.begin());
        put(os, value.substr(0, length));
        value.remove_prefix(length);
        if (!value.empty()) {
            putEscaped(os, value.front());
            value.remove_prefix(1);
        }
    }
    put(os, "\"");
}

template <class Number>
void putNumber(std::ostream& os, std::string_view name, Number value)
{
    // Longer than the shortest form of any number.
    char digits[64];
    const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    FieldWriter::writeText(os, name, std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

}

void FieldWriter::writeText(std::ostream& os, std::string_view name, std::string_view value)
{
    os.width(0);
    put(os, " ");
    putName(os, name);
    put(os, "=");
    if (FieldSyntax::needsQuotes(value)) {
        putQuoted(os, value);
    } else {
        put(os, value);
    }
}

void FieldWriter::writeNumber(std::ostream& os, std::string_view name, long long value)
{
    putNumber(os, name, value);
}

void FieldWriter::writeNumber(std::ostream& os, std::string_view name, unsigned long long value)
{
    putNumber(os, name, value);
}

void FieldWriter::writeNumber(std::ostream& os, std::string_view name, float value)
{
    putNumber(os, name, value);
}

void FieldWriter::writeNumber(std::ostream& os, std::string_view name, double value)
{
    putNumber(os, name, value);
}

void FieldWriter::writeNumber(std::ostream& os, std::string_view name, long double value)
{
    putNumber(os, name, value);
}

void FieldWriter::writeInserted(std::ostream& os, std::string_view name,
                                void (*insert)(std::ostream& os, const void* value), const void* value)
{
    // Not an ostringstream: see SpareHeaders.
    Statement statement(INTERNAL_LOG_MODULE, Severity_TRACE);
    Header& text = statement.header("", 0);
    text.imbue(std::locale::classic());
    insert(text.os(), value);
    text.throwIfTruncated();
    writeText(os, name, text.text());
}

}
