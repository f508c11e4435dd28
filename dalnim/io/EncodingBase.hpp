#ifndef DALNIM_IO_ENCODINGBASE_HPP
#define DALNIM_IO_ENCODINGBASE_HPP

#include <dalnim/String.hpp>
#include <dalnim/io/nsdefs.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::io {

/**
 * A scheme that turns bytes into text. What it can do is told by its further interfaces, Encoder
 * and Decoder.
 *
 * Thread safety: an encoding has no state, and its operations may run in any number of threads at
 * once. Each call needs its streams for itself.
 */
class DALNIM_API EncodingBase
{
public:
    /** In the `flags` of an encoder: break the output into lines. */
    static constexpr unsigned int ENC_LINE_BREAKS = 256;
    /** In the `flags` of a decoder: skip whatever is not of the alphabet, not white space alone. */
    static constexpr unsigned int DEC_SKIP_INVALID = 512;

    virtual ~EncodingBase();

    EncodingBase(const EncodingBase&) = delete;
    EncodingBase& operator=(const EncodingBase&) = delete;

    /** What the scheme can do, as bits; without a decoder the bit of value 2 is absent. */
    virtual unsigned int features() const = 0;
    /** The name of the scheme. It lives as long as the process. */
    virtual const String& scheme() const = 0;

protected:
    EncodingBase();
};

}

#endif
