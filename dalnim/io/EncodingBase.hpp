#ifndef DALNIM_IO_ENCODINGBASE_HPP
#define DALNIM_IO_ENCODINGBASE_HPP

#include <dalnim/String.hpp>
#include <dalnim/io/nsdefs.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::io {

/**
 * A scheme that converts bytes to text. Its operations are in the interfaces Encoder and Decoder.
 *
 * Thread safety: encodings have no state; any number of threads may call their operations concurrently. A
 * call requires exclusive access to its streams.
 */
class DALNIM_API EncodingBase
{
public:
    /** Flag of encoders: break the output into lines. */
    static constexpr unsigned int ENC_LINE_BREAKS = 256;
    /** Flag of decoders: skip all bytes outside of the alphabet, not only white space. */
    static constexpr unsigned int DEC_SKIP_INVALID = 512;

    virtual ~EncodingBase();

    EncodingBase(const EncodingBase&) = delete;
    EncodingBase& operator=(const EncodingBase&) = delete;

    /** Returns the abilities of the scheme as bits. The bit with the value 2 is set if it can be decoded. */
    virtual unsigned int features() const = 0;
    /** Returns the name of the scheme. It is valid until the process ends. */
    virtual const String& scheme() const = 0;

protected:
    EncodingBase();
};

}

#endif
