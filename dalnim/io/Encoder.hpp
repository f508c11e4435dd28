#ifndef DALNIM_IO_ENCODER_HPP
#define DALNIM_IO_ENCODER_HPP

#include <dalnim/io/EncodingBase.hpp>

#include <iosfwd>

namespace com::kor::dal::nim::io {

class Decoder;

/** The direction from bytes to text. */
class DALNIM_API Encoder : public virtual EncodingBase
{
public:
    ~Encoder() override;

    /** A new decoder of the same scheme, owned by the caller; null where there is none. */
    virtual Decoder* createDecoder() const = 0;

    /**
     * Encodes `is` up to its end, flushes `os` and returns it.
     *
     * @param flags the low 8 bits are a width, 0 for that of the scheme; others are named in
     *              EncodingBase
     * @throws sys::system_error with the number in `errno`, when a stream fails
     */
    virtual std::ostream& encode(std::ostream& os, std::istream& is, unsigned int flags = 0) const = 0;
    /** The same from text to text, by the form for streams. */
    virtual String encode(const String& istr, unsigned int flags = 0) const = 0;

protected:
    Encoder();
};

}

#endif
