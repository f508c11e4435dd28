#include <dalnim/dalbase.hpp>

#include <dalnim/io/HexDump.hpp>

#include <dalnim/io/src/InputBytes.hpp>
#include <dalnim/io/src/OutputStream.hpp>
#include <dalnim/sys/StackTrack.hpp>

#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <sstream>
#include <string_view>

namespace com::kor::dal::nim::io {

namespace {

constexpr char HEX_CHARS[] = "0123456789ABCDEF";

constexpr unsigned int WIDTH_MASK = 0xFF;
constexpr std::size_t DEFAULT_WIDTH = 16;

char hex_printable_char(char c)
{
    return c >= 32 && c <= 126 ? c : '.';
}

/** Reads up to `width` bytes. Returns false at the end of the data. */
bool readRow(String& bytes, InputBytes& input, std::size_t width)
{
    bytes.clear();
    while (bytes.size() < width) {
        const std::string_view ready = input.peek().substr(0, width - bytes.size());
        if (ready.empty()) {
            return false;
        }
        bytes += ready;
        input.consume(ready.size());
    }
    return true;
}

void formatRow(String& row, std::uint32_t offset, const String& bytes, std::size_t width)
{
    row.clear();
    for (int shift = 28; shift >= 0; shift -= 4) {
        row += HEX_CHARS[offset >> shift & 0xF];
    }
    row += ':';
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        row += ' ';
        row += HEX_CHARS[byte >> 4];
        row += HEX_CHARS[byte & 0xF];
    }
    row.append(3 * (width - bytes.size()), ' ');
    row += " | ";
    for (const char c : bytes) {
        row += hex_printable_char(c);
    }
}

}

HexDump::HexDump() = default;
HexDump::~HexDump() = default;

unsigned int HexDump::features() const
{
    return 5;
}

const String& HexDump::scheme() const
{
    // Never destroyed: static destructors and threads may use it until the process has ended.
    static const String* const name = new String(ENCODING_SCHEME);
    return *name;
}

Decoder* HexDump::createDecoder() const
{
    return nullptr;
}

std::ostream& HexDump::encode(std::ostream& os, std::istream& is, unsigned int flags) const
{
    const sys::StackTrack track("encode()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const std::size_t width = (flags & WIDTH_MASK) != 0 ? flags & WIDTH_MASK : DEFAULT_WIDTH;
    InputBytes input(is);
    std::uint32_t offset = 0;
    String bytes;
    String row;
    bool more = true;
    while (more) {
        more = readRow(bytes, input, width);
        if (bytes.empty()) {
            break;
        }
        if (offset != 0) {
            os << std::endl;
            throwIfFailed(os);
        }
        formatRow(row, offset, bytes, width);
        writeText(os, row);
        offset += static_cast<std::uint32_t>(bytes.size());
    }
    return flushText(os);
}

String HexDump::encode(const String& istr, unsigned int flags) const
{
    const sys::StackTrack track("encode()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    std::istringstream is(istr);
    std::ostringstream os;
    // Throws if memory runs out, so that the result is never truncated.
    os.exceptions(std::ios_base::badbit);
    encode(os, is, flags);
    return os.str();
}

}
