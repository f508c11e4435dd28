#ifndef DALNIM_IO_HEXDUMP_HPP
#define DALNIM_IO_HEXDUMP_HPP

#include <dalnim/io/Encoder.hpp>

namespace com::kor::dal::nim::io {

/** Formats bytes for human readers: rows of an offset, the bytes in hexadecimal, and their characters. */
class DALNIM_API HexDump : public Encoder
{
public:
    static constexpr const char CLASS_NAME[] = "HexDump";
    /** The name of the scheme. */
    static constexpr const char ENCODING_SCHEME[] = "HexDump";

    HexDump();
    ~HexDump() override;

    /** Returns 5. */
    unsigned int features() const override;
    /** Returns "HexDump". */
    const String& scheme() const override;

    /** Returns null: a dump cannot be decoded. */
    Decoder* createDecoder() const override;

    /**
     * Dumps `is` up to its end. The low 8 bits of `flags` are the number of bytes in a row; 0 means 16:
     *
     *     00000000: 48 65 6C 6C 6F 0A                               | Hello.
     *
     * Line feeds separate the rows; the last row has none. `os` is flushed after each row. The offset is that
     * of the first byte of the row, modulo 2^32. Bytes other than 32 to 126 are shown as ".".
     *
     * @throws sys::system_error  the value of `errno`, if a stream fails, also in a flush
     */
    std::ostream& encode(std::ostream& os, std::istream& is, unsigned int flags = 0) const override;
    String encode(const String& istr, unsigned int flags = 0) const override;
};

}

#endif
