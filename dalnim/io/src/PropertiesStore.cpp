#include <dalnim/dalbase.hpp>

#include <dalnim/io/Properties.hpp>

#include <dalnim/io/src/PropertiesText.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <dalnim/sys/internal/src/TimeZone.hpp>

#include <ctime>
#include <ostream>

namespace com::kor::dal::nim::io {

namespace {

void appendEscaped(String& out, const String& text)
{
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\' || (byte >= 7 && byte <= 13)) {
            out += '\\';
            out += escaped_char_to_char(c);
        } else if (byte >= 32 && byte <= 126) {
            out += c;
        } else {
            out += "\\u00";
            out += HEX_CHAR_SET[byte >> 4];
            out += HEX_CHAR_SET[byte & 0xf];
        }
    }
}

String localTimeText()
{
    std::tm now = {};
    sys::System::localtime(now, std::time(nullptr));
    char text[64];
    return String(text,
                  sys::internal::TimeZone::format(text, sizeof text, sys::internal::LOCAL_TIME_FORMAT, now));
}

/** Writes a whole line in one call, to which the format flags of the stream do not apply. Clears `line`. */
void writeLine(std::ostream& os, String& line)
{
    line += '\n';
    os.write(line.data(), static_cast<std::streamsize>(line.size()));
    line.clear();
}

}

std::ostream& Properties::store(std::ostream& os, const String& header) const
{
    const sys::StackTrack track("store()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    String line;
    if (!header.empty()) {
        line = "#" + header;
        writeLine(os, line);
    }
    line = "#" + localTimeText();
    writeLine(os, line);

    for (const auto& [key, value] : data) {
        appendEscaped(line, key);
        line += '=';
        appendEscaped(line, value);
        writeLine(os, line);
    }
    return os.flush();
}

}
