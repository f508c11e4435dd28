#ifndef DALNIM_IO_DECODER_HPP
#define DALNIM_IO_DECODER_HPP

#include <dalnim/io/EncodingBase.hpp>

#include <iosfwd>

namespace com::kor::dal::nim::io {

class Encoder;

/** The direction from text back to bytes. */
class DALNIM_API Decoder : public virtual EncodingBase
{
public:
    ~Decoder() override;

    /** A new encoder of the same scheme, owned by the caller. */
    virtual Encoder* createEncoder() const = 0;

    /**
     * Decodes `is` up to where the encoded text ends, flushes `os` and returns it.
     *
     * @param flags named in EncodingBase
     * @throws std::invalid_argument for text that is none of the scheme
     * @throws sys::system_error     with the number in `errno`, when a stream fails
     */
    virtual std::ostream& decode(std::ostream& os, std::istream& is, unsigned int flags = 0) const = 0;
    /** The same from text to text, by the form for streams. */
    virtual String decode(const String& istr, unsigned int flags = 0) const = 0;

protected:
    Decoder();
};

}

#endif
