// Base64: the first byte of the input selects flags, the second is the line width, the third the chunk size
// of streams. The rest is encoded, decoded, and compared with a simple model.

#include <cstddef>
#include <cstdint>
#include <istream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <dalnim/io/Base64.hpp>
#include <fuzz/support/Require.hpp>
#include <tests/io/Base64Model.hpp>
#include <tests/io/PieceBuffer.hpp>

namespace {

using com::kor::dal::nim::io::Base64;

void checkEncoding(const std::string& data, unsigned int flags, std::size_t piece)
{
    std::size_t width = 0;
    if ((flags & Base64::ENC_LINE_BREAKS) != 0) {
        width = (flags & 255) == 0 ? 76 : (flags & 255) < 4 ? 4 : (flags & 255) / 4 * 4;
    }
    const Base64 base64;
    const std::string text = base64.encode(data, flags);
    require(text == base64model::encoded(data, width));
    require(base64.decode(text) == data);

    PieceBuffer pieces(data, piece);
    std::istream is(&pieces);
    std::ostringstream os;
    require(&base64.encode(os, is, flags) == &os);
    require(os.str() == text && is.eof() && !is.fail());
}

void checkDecoding(const std::string& text, unsigned int flags, std::size_t piece)
{
    const auto model = base64model::decoded(text, (flags & Base64::DEC_SKIP_INVALID) != 0);
    const Base64 base64;
    bool illegal = false;
    try {
        require(base64.decode(text, flags) == model.data);
    } catch (const std::invalid_argument& error) {
        require(error.what() == std::string("Illegal Base64 format"));
        illegal = true;
    }
    require(illegal == model.illegal);

    PieceBuffer pieces(text, piece);
    std::istream is(&pieces);
    std::ostringstream os;
    illegal = false;
    try {
        base64.decode(os, is, flags);
    } catch (const std::invalid_argument&) {
        illegal = true;
    }
    require(illegal == model.illegal);
    require(os.str() == model.data);
    require(pieces.position() == model.position && is.eof() == model.sawEnd && !is.fail());
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3) {
        return 0;
    }
    const unsigned int flags = (data[0] & 3U) << 8 | data[1];
    const std::size_t piece = data[2];
    const std::string rest(reinterpret_cast<const char*>(data) + 3, size - 3);
    checkEncoding(rest, flags, piece);
    checkDecoding(rest, flags, piece);
    return 0;
}
