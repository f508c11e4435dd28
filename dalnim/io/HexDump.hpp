#ifndef DALNIM_IO_HEXDUMP_HPP
#define DALNIM_IO_HEXDUMP_HPP

#include <dalnim/io/Encoder.hpp>

namespace com::kor::dal::nim::io {

/** Bytes for the eyes of people: rows of an offset, the bytes in hexadecimal, and their text. */
class DALNIM_API HexDump : public Encoder
{
public:
    static constexpr const char CLASS_NAME[] = "HexDump";
    /** The name of the scheme. */
    static constexpr const char ENCODING_SCHEME[] = "HexDump";

    HexDump();
    ~HexDump() override;

    /** 5 */
    unsigned int features() const override;
    /** "HexDump" */
    const String& scheme() const override;

    /** Null: nothing decodes a dump. */
    Decoder* createDecoder() const override;

    /**
     * Dumps `is` up to its end, in rows of as many bytes as the low 8 bits of `flags` say, 16 for 0:
     *
     *     00000000: 48 65 6C 6C 6F 0A                               | Hello.
     *
     * Rows are separated, not ended, by line feeds, and `os` is flushed behind each. The offset is
     * that of the first byte, modulo 2^32. Bytes other than 32 to 126 show as ".".
     *
     * @throws sys::system_error with the number in `errno`, if a stream fails, also in a flush
     */
    std::ostream& encode(std::ostream& os, std::istream& is, unsigned int flags = 0) const override;
    String encode(const String& istr, unsigned int flags = 0) const override;
};

}

#endif
