#include "EventPrinter.hpp"

namespace nimxml {

bool EventPrinter::elementBegin(const std::string&, const std::string& fullTag, const xml::Attributes& attrs)
{
    out << "begin " << fullTag;
    for (const xml::Attribute& attribute : attrs) {
        out << ' ' << attribute.name << '=';
        writeQuoted(attribute.value);
    }
    out << '\n';
    return true;
}

bool EventPrinter::elementEnd(const std::string&, const std::string& fullTag)
{
    out << "end " << fullTag << '\n';
    return true;
}

bool EventPrinter::elementProcessData(const std::string&, const std::string& fullTag, const std::string& data,
                                      bool isCData)
{
    out << (isCData ? "cdata " : "text ") << fullTag << ' ';
    writeQuoted(data);
    out << '\n';
    return true;
}

/** Writes a string in quotes. Quotes, backslashes and control bytes are escaped as in C. */
void EventPrinter::writeQuoted(const std::string& text)
{
    static const char HEX[] = "0123456789abcdef";
    out << '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            out << "\\n";
        } else if (c == '\r') {
            out << "\\r";
        } else if (c == '\t') {
            out << "\\t";
        } else if (c == '"' || c == '\\') {
            out << '\\' << c;
        } else if (byte < 0x20 || byte == 0x7f) {
            out << "\\x" << HEX[byte >> 4] << HEX[byte & 0xf];
        } else {
            out << c;
        }
    }
    out << '"';
}

}
