#ifndef DALNIM_IO_ENCODER_HPP
#define DALNIM_IO_ENCODER_HPP

#include <dalnim/io/EncodingBase.hpp>

#include <iosfwd>

namespace com::kor::dal::nim::io {

class Decoder;

/** Interface of encodings that can encode: from bytes to text. */
class DALNIM_API Encoder : public virtual EncodingBase
{
public:
    ~Encoder() override;

    /** Returns a new decoder of the same scheme, owned by the caller, or null if the scheme cannot be
     * decoded. */
    virtual Decoder* createDecoder() const = 0;

    /**
     * Encodes `is` up to its end, flushes `os` and returns it.
     *
     * @param flags  the low 8 bits are a width, 0 for the default of the scheme; for others see EncodingBase
     * @throws sys::system_error  the value of `errno`, if a stream fails
     */
    virtual std::ostream& encode(std::ostream& os, std::istream& is, unsigned int flags = 0) const = 0;
    /** The same for strings. Calls the overload for streams. */
    virtual String encode(const String& istr, unsigned int flags = 0) const = 0;

protected:
    Encoder();
};

}

#endif
