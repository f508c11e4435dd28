#ifndef DALNIM_IO_DECODER_HPP
#define DALNIM_IO_DECODER_HPP

#include <dalnim/io/EncodingBase.hpp>

#include <iosfwd>

namespace com::kor::dal::nim::io {

class Encoder;

/** Interface of encodings that can decode: from text to bytes. */
class DALNIM_API Decoder : public virtual EncodingBase
{
public:
    ~Decoder() override;

    /** Returns a new encoder of the same scheme, owned by the caller. */
    virtual Encoder* createEncoder() const = 0;

    /**
     * Decodes `is` up to the end of the encoded text, flushes `os` and returns it.
     *
     * @param flags  see EncodingBase
     * @throws std::invalid_argument  if the text is malformed
     * @throws sys::system_error      the value of `errno`, if a stream fails
     */
    virtual std::ostream& decode(std::ostream& os, std::istream& is, unsigned int flags = 0) const = 0;
    /** The same for strings. Calls the overload for streams. */
    virtual String decode(const String& istr, unsigned int flags = 0) const = 0;

protected:
    Decoder();
};

}

#endif
