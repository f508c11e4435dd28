#ifndef DALNIM_IO_BASE64_HPP
#define DALNIM_IO_BASE64_HPP

#include <dalnim/io/Encoding.hpp>

namespace com::kor::dal::nim::io {

/** Encodes and decodes Base64 with the standard alphabet and padding (RFC 4648, table 1). */
class DALNIM_API Base64 : public Encoder, public Decoder
{
public:
    static constexpr const char CLASS_NAME[] = "Base64";
    /** The name of the scheme. */
    static constexpr const char ENCODING_SCHEME[] = "Base64";

    Base64();
    ~Base64() override;

    /** Returns 7. */
    unsigned int features() const override;
    /** Returns "Base64". */
    const String& scheme() const override;

    Decoder* createDecoder() const override;

    /**
     * Encodes `is` up to its end. Without ENC_LINE_BREAKS the output is one line. Otherwise the low 8 bits of
     * `flags` are the number of characters in a line (0 means 76), rounded down to a multiple of 4, but at
     * least
     * 4. Every full line ends in a line feed; a partial last line does not.
     *
     * @throws sys::system_error  the value of `errno`, if a stream fails, also in the final flush
     */
    std::ostream& encode(std::ostream& os, std::istream& is, unsigned int flags = 0) const override;
    String encode(const String& istr, unsigned int flags = 0) const override;

    Encoder* createEncoder() const override;

    /**
     * Decodes `is` up to its end or through the first padded group. Bytes after a padded group are not read,
     * nor is a "=" at the start of a group, which ends the input. White space is skipped except after a "=";
     * DEC_SKIP_INVALID skips every other byte outside of the alphabet, too. Surplus bits of a padded group
     * are ignored.
     *
     * @throws std::invalid_argument  "Illegal Base64 format", for any other byte, for input that ends within
     * a group, and for more than two "=" in a group. All groups before it have been written to `os`; the
     * invalid byte has not been read
     * @throws sys::system_error      the value of `errno`, if a stream fails, also in the final flush
     */
    std::ostream& decode(std::ostream& os, std::istream& is, unsigned int flags = 0) const override;
    String decode(const String& istr, unsigned int flags = 0) const override;
};

}

#endif
