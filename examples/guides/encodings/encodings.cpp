#include <dalnim/nim.hpp>

#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

using namespace com::kor::dal::nim;

namespace {

/** Encodes and decodes with any encoding. */
void show(const io::Encoder& encoder, const String& bytes)
{
    std::cout << encoder.scheme() << ": " << encoder.encode(bytes) << '\n';
    if (const std::unique_ptr<const io::Decoder> decoder(encoder.createDecoder()); decoder != nullptr) {
        std::cout << "  and back: " << decoder->decode(encoder.encode(bytes)) << '\n';
    }
}

void decode(const String& text, unsigned int flags = 0)
{
    const io::Base64 base64;
    try {
        const String bytes = base64.decode(text, flags);
        std::cout << '[' << text << "] is [" << bytes << "]\n";
    } catch (const std::invalid_argument& failure) {
        std::cout << '[' << text << "]: " << failure.what() << '\n';
    }
}

}

int main()
{
    const io::Base64 base64;
    const io::HexDump dump;
    show(base64, "a pot of tea");
    show(dump, "a pot of tea\n");

    // The low 8 bits of the flags are the width of a row.
    std::istringstream letter("Dear Ada, the tea is ready. Yours, the shop");
    std::cout << "lines of 20 characters:\n";
    base64.encode(std::cout, letter, io::EncodingBase::ENC_LINE_BREAKS | 20) << '\n';
    std::cout << "rows of 8 bytes:\n" << dump.encode("a pot of tea\n", 8) << '\n';

    decode("dGVh");
    decode("dG Vh");
    decode("dG-Vh");
    decode("dG-Vh", io::EncodingBase::DEC_SKIP_INVALID);
    decode("dGV");
    decode("dGU= and what else there is");
}
