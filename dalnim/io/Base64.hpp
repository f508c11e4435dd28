#ifndef DALNIM_IO_BASE64_HPP
#define DALNIM_IO_BASE64_HPP

#include <dalnim/io/Encoding.hpp>

namespace com::kor::dal::nim::io {

/** Base64 with the standard alphabet and padding (RFC 4648, table 1), in both directions. */
class DALNIM_API Base64 : public Encoder, public Decoder
{
public:
    static constexpr const char CLASS_NAME[] = "Base64";
    /** The name of the scheme. */
    static constexpr const char ENCODING_SCHEME[] = "Base64";

    Base64();
    ~Base64() override;

    /** 7 */
    unsigned int features() const override;
    /** "Base64" */
    const String& scheme() const override;

    Decoder* createDecoder() const override;

    /**
     * Encodes `is` up to its end. Without ENC_LINE_BREAKS the output is one line. With it, a line
     * has as many characters as the low 8 bits of `flags` say, 76 for 0, down to the next multiple
     * of 4 but not below that; every full line ends in a line feed, a partial one does not.
     *
     * @throws sys::system_error with the number in `errno`, if a stream fails, also in the last flush
     */
    std::ostream& encode(std::ostream& os, std::istream& is, unsigned int flags = 0) const override;
    String encode(const String& istr, unsigned int flags = 0) const override;

    Encoder* createEncoder() const override;

    /**
     * Decodes `is` up to its end, or up to padding: what stands behind a padded group is not read,
     * and neither is a "=" in the place of a group. White space is skipped except behind a "=";
     * with DEC_SKIP_INVALID, so is every other byte outside of the alphabet. Bits that a padded
     * group has to spare are ignored.
     *
     * @throws std::invalid_argument "Illegal Base64 format", for any other byte, for text that ends
     *                               within a group, and for more than two "=" in a group. `os` has
     *                               got all groups before that; a byte that is out of place is not
     *                               read.
     * @throws sys::system_error     with the number in `errno`, if a stream fails, also in the last
     *                               flush
     */
    std::ostream& decode(std::ostream& os, std::istream& is, unsigned int flags = 0) const override;
    String decode(const String& istr, unsigned int flags = 0) const override;
};

}

#endif
