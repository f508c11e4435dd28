#include <dalnim/dalbase.hpp>

#include <dalnim/io/Base64.hpp>

#include <dalnim/io/src/Base64Blocks.hpp>
#include <dalnim/io/src/InputBytes.hpp>
#include <dalnim/io/src/OutputStream.hpp>
#include <dalnim/sys/StackTrack.hpp>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <typeinfo>

namespace com::kor::dal::nim::io {

namespace {

constexpr std::size_t GROUP_DATA = 3;
constexpr std::size_t GROUP_TEXT = 4;

/** Number of groups converted between two writes. Data, text and tables fit into a first-level cache. */
constexpr std::size_t GROUPS_PER_BLOCK = 2048;

constexpr unsigned int WIDTH_MASK = 0xFF;
constexpr unsigned int DEFAULT_WIDTH = 76;

[[noreturn]] void throw_invalid_format()
{
    throw std::invalid_argument("Illegal Base64 format");
}

/** Returns the number of groups in a line, or 0 for no line breaks. */
std::size_t groupsPerLine(unsigned int flags)
{
    if ((flags & EncodingBase::ENC_LINE_BREAKS) == 0) {
        return 0;
    }
    const unsigned int width = (flags & WIDTH_MASK) != 0 ? flags & WIDTH_MASK : DEFAULT_WIDTH;
    return std::max<std::size_t>(width / GROUP_TEXT, 1);
}

/** Encodes data that is passed in pieces of any length. */
class Encoding
{
public:
    explicit Encoding(unsigned int flags) : groups_per_line(groupsPerLine(flags)) {}

    /** Encodes the beginning of `data`. Returns the number of bytes consumed, at least one. */
    std::size_t consume(std::string_view data)
    {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(data.data());
        std::size_t consumed = 0;
        end = text;
        if (buffered != 0) {
            consumed = buffer(bytes, std::min(data.size(), GROUP_DATA - buffered));
            if (buffered < GROUP_DATA) {
                return consumed;
            }
            encodeGroups(partial, 1);
            buffered = 0;
        }
        const std::size_t groups = std::min((data.size() - consumed) / GROUP_DATA, GROUPS_PER_BLOCK);
        encodeGroups(bytes + consumed, groups);
        consumed += groups * GROUP_DATA;
        if (data.size() - consumed < GROUP_DATA) {
            consumed += buffer(bytes + consumed, data.size() - consumed);
        }
        return consumed;
    }

    /** Ends the data: encodes a partial group. */
    void finish()
    {
        end = text;
        if (buffered != 0) {
            std::fill(partial + buffered, partial + GROUP_DATA, static_cast<unsigned char>(0));
            encodeGroups(partial, 1);
            std::fill(text + buffered + 1, text + GROUP_TEXT, '=');
        }
    }

    /** Returns the output of the last call of consume() or finish(). */
    std::string_view output() const
    {
        return std::string_view(text, static_cast<std::size_t>(end - text));
    }

private:
    std::size_t buffer(const unsigned char* data, std::size_t length)
    {
        std::copy(data, data + length, partial + buffered);
        buffered += length;
        return length;
    }

    /** Encodes groups and inserts line breaks. */
    void encodeGroups(const unsigned char* data, std::size_t groups)
    {
        while (groups != 0) {
            const std::size_t part =
                groups_per_line == 0 ? groups : std::min(groups, groups_per_line - groups_in_line);
            blocks.encode(data, part, end);
            data += part * GROUP_DATA;
            end += part * GROUP_TEXT;
            groups -= part;
            groups_in_line += part;
            if (groups_in_line == groups_per_line) {
                *end++ = '\n';
                groups_in_line = 0;
            }
        }
    }

    const Base64Blocks& blocks = base64Blocks();

    /** 0 for no line breaks. */
    const std::size_t groups_per_line;
    std::size_t groups_in_line = 0;

    /** The beginning of a partial group, and the number of its bytes. */
    unsigned char partial[GROUP_DATA] = {};
    std::size_t buffered = 0;

    /** Has space for one more group, the partial one, and for a line feed after each group. */
    char text[(GROUPS_PER_BLOCK + 1) * (GROUP_TEXT + 1)];
    char* end = text;
};

/** Decodes text that is passed in pieces of any length. */
class Decoding
{
public:
    /** OPEN until the text ends, by padding or by finish(), or is found to be malformed. */
    enum State { OPEN, ENDED, ILLEGAL };

    explicit Decoding(unsigned int flags) : skip_invalid((flags & EncodingBase::DEC_SKIP_INVALID) != 0) {}

    /** Decodes the beginning of `text`. Returns the number of bytes consumed, at least one while still OPEN.
     */
    std::size_t consume(std::string_view text)
    {
        const char* const first = text.data();
        const char* const last = first + std::min(text.size(), GROUPS_PER_BLOCK * GROUP_TEXT);
        const char* pos = first;
        end = data;
        while (state == OPEN && pos != last) {
            if (symbols == 0) {
                const auto groups = static_cast<std::size_t>(last - pos) / GROUP_TEXT;
                const std::size_t decoded = blocks.decode(pos, groups, end);
                pos += decoded * GROUP_TEXT;
                end += decoded * GROUP_DATA;
                if (pos == last) {
                    break;
                }
            }
            if (acceptSymbol(*pos)) {
                ++pos;
            }
            if (symbols == GROUP_TEXT) {
                closeGroup();
            }
        }
        return static_cast<std::size_t>(pos - first);
    }

    /** Ends the text, which must not be within a group. */
    void finish()
    {
        end = data;
        state = symbols == 0 ? ENDED : ILLEGAL;
    }

    /** Returns the output of the last call of consume() or finish(). */
    std::string_view output() const
    {
        return std::string_view(reinterpret_cast<const char*>(data), static_cast<std::size_t>(end - data));
    }

    State outcome() const
    {
        return state;
    }

private:
    /** Processes a byte. Returns false if it ends the text, and is not consumed. */
    bool acceptSymbol(char c)
    {
        if (c == '=' || pads != 0) {
            if (c != '=') {
                state = ILLEGAL;
                return false;
            }
            if (symbols == 0) {
                state = ENDED;
                return false;
            }
            ++pads;
            add(0);
            return true;
        }
        const unsigned char value = base64Value(c);
        if (value != B64_INVALID) {
            add(value);
            return true;
        }
        if (!skip_invalid && std::isspace(static_cast<unsigned char>(c)) == 0) {
            state = ILLEGAL;
            return false;
        }
        return true;
    }

    void add(unsigned char value)
    {
        bits = (bits & 0x3FFFF) << 6 | value;
        ++symbols;
    }

    void closeGroup()
    {
        symbols = 0;
        if (pads > 2) {
            state = ILLEGAL;
            return;
        }
        if (pads != 0) {
            state = ENDED;
        }
        for (std::size_t i = 0; i < GROUP_DATA - pads; ++i) {
            *end++ = static_cast<unsigned char>(bits >> (16 - 8 * i) & 0xFF);
        }
    }

    const Base64Blocks& blocks = base64Blocks();
    const bool skip_invalid;
    State state = OPEN;

    /** The current group: its bits, the number of its symbols, and how many of them are padding. */
    std::uint32_t bits = 0;
    std::size_t symbols = 0;
    std::size_t pads = 0;

    /** Has space for one more group, the one begun in an earlier piece. */
    unsigned char data[(GROUPS_PER_BLOCK + 1) * GROUP_DATA];
    unsigned char* end = data;
};

String encodeString(std::string_view data, unsigned int flags)
{
    Encoding encoding(flags);
    String result;
    const std::size_t groups = (data.size() + GROUP_DATA - 1) / GROUP_DATA;
    const std::size_t groups_per_line = groupsPerLine(flags);
    result.reserve(groups * GROUP_TEXT + (groups_per_line != 0 ? groups / groups_per_line : 0));
    while (!data.empty()) {
        data.remove_prefix(encoding.consume(data));
        result += encoding.output();
    }
    encoding.finish();
    result += encoding.output();
    return result;
}

String decodeString(std::string_view text, unsigned int flags)
{
    Decoding decoding(flags);
    String result;
    result.reserve(text.size() / GROUP_TEXT * GROUP_DATA);
    while (!text.empty() && decoding.outcome() == Decoding::OPEN) {
        text.remove_prefix(decoding.consume(text));
        result += decoding.output();
    }
    if (decoding.outcome() == Decoding::OPEN) {
        decoding.finish();
    }
    if (decoding.outcome() == Decoding::ILLEGAL) {
        throw_invalid_format();
    }
    return result;
}

}

Base64::Base64() = default;
Base64::~Base64() = default;

unsigned int Base64::features() const
{
    return 7;
}

const String& Base64::scheme() const
{
    // Never destroyed: static destructors and threads may use it until the process has ended.
    static const String* const name = new String(ENCODING_SCHEME);
    return *name;
}

Decoder* Base64::createDecoder() const
{
    const sys::StackTrack track("createDecoder()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    return new Base64;
}

std::ostream& Base64::encode(std::ostream& os, std::istream& is, unsigned int flags) const
{
    const sys::StackTrack track("encode()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    InputBytes input(is);
    Encoding encoding(flags);
    for (auto ready = input.peek(); !ready.empty(); ready = input.peek()) {
        // Consume the input before writing: the two streams may share a buffer.
        input.consume(encoding.consume(ready));
        writeText(os, encoding.output());
    }
    encoding.finish();
    writeText(os, encoding.output());
    return flushText(os);
}

String Base64::encode(const String& istr, unsigned int flags) const
{
    const sys::StackTrack track("encode()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    // A derived class may override the overload for streams, which must then be called.
    if (typeid(*this) == typeid(Base64)) {
        return encodeString(istr, flags);
    }
    std::istringstream is(istr);
    std::ostringstream os;
    // Throws if memory runs out, so that the result is never truncated.
    os.exceptions(std::ios_base::badbit);
    encode(os, is, flags);
    return os.str();
}

Encoder* Base64::createEncoder() const
{
    const sys::StackTrack track("createEncoder()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    return new Base64;
}

std::ostream& Base64::decode(std::ostream& os, std::istream& is, unsigned int flags) const
{
    const sys::StackTrack track("decode()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    InputBytes input(is);
    Decoding decoding(flags);
    while (decoding.outcome() == Decoding::OPEN) {
        const auto ready = input.peek();
        if (ready.empty()) {
            decoding.finish();
        } else {
            input.consume(decoding.consume(ready));
            writeText(os, decoding.output());
        }
    }
    if (decoding.outcome() == Decoding::ILLEGAL) {
        throw_invalid_format();
    }
    return flushText(os);
}

String Base64::decode(const String& istr, unsigned int flags) const
{
    const sys::StackTrack track("decode()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (typeid(*this) == typeid(Base64)) {
        return decodeString(istr, flags);
    }
    std::istringstream is(istr);
    std::ostringstream os;
    // Throws if memory runs out, so that the result is never truncated.
    os.exceptions(std::ios_base::badbit);
    decode(os, is, flags);
    return os.str();
}

}
