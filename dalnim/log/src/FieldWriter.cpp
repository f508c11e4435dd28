#include <dalnim/dalbase.hpp>

#include <dalnim/log/FieldWriter.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/src/FieldSyntax.hpp>
#include <dalnim/log/src/HexDigits.hpp>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <locale>
#include <ostream>

namespace com::kor::dal::nim::log {

namespace {

/** Collects the parts of a field, since each insertion into a stream costs more than a short part. */
class Output
{
public:
    explicit Output(std::ostream& stream) noexcept : os(stream), length(0) {}

    void put(char c)
    {
        if (length == sizeof bytes) {
            flush();
        }
        bytes[length++] = c;
    }
    void put(std::string_view text)
    {
        if (text.size() > sizeof bytes - length) {
            flush();
            if (text.size() > sizeof bytes) {
                write(text);
                return;
            }
        }
        if (!text.empty()) {
            std::memcpy(bytes + length, text.data(), text.size());
            length += text.size();
        }
    }
    /** Must be called at the end. */
    void flush()
    {
        write(std::string_view(bytes, length));
        length = 0;
    }

private:
    void write(std::string_view text)
    {
        os.write(text.data(), static_cast<std::streamsize>(text.size()));
    }

    std::ostream& os;
    std::size_t length;
    char bytes[256];
};

/** Writes the name, with "_" in place of each character that a name cannot have. */
void putName(Output& out, std::string_view name)
{
    out.put(!name.empty() && FieldSyntax::isNameStart(name.front()) ? name.front() : '_');
    for (const char c : name.substr(name.empty() ? 0 : 1)) {
        out.put(FieldSyntax::isNamePart(c) ? c : '_');
    }
}

void putEscaped(Output& out, char c)
{
    out.put('\\');
    if (c == '\n' || c == '\t' || c == '\r') {
        out.put(c == '\n' ? 'n' : c == '\t' ? 't' : 'r');
    } else if (FieldSyntax::isControl(c)) {
        const auto byte = static_cast<unsigned char>(c);
        out.put('x');
        out.put(HEX_DIGITS[byte >> 4]);
        out.put(HEX_DIGITS[byte & 0xf]);
    } else {
        out.put(c);
    }
}

void putQuoted(Output& out, std::string_view value)
{
    out.put('"');
    while (!value.empty()) {
        const auto* const escaped = std::find_if(value.begin(), value.end(), FieldSyntax::isEscaped);
        const auto length = static_cast<std::size_t>(escaped - value.begin());
        out.put(value.substr(0, length));
        value.remove_prefix(length);
        if (!value.empty()) {
            putEscaped(out, value.front());
            value.remove_prefix(1);
        }
    }
    out.put('"');
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
    Output out(os);
    out.put(' ');
    putName(out, name);
    out.put('=');
    if (FieldSyntax::needsQuotes(value)) {
        putQuoted(out, value);
    } else {
        out.put(value);
    }
    out.flush();
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
