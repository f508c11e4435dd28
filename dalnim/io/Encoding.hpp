#ifndef DALNIM_IO_ENCODING_HPP
#define DALNIM_IO_ENCODING_HPP

/**
 * @file
 * The interfaces of the encodings; Base64 and HexDump implement them.
 */

#include <dalnim/io/Decoder.hpp>
#include <dalnim/io/Encoder.hpp>
#include <dalnim/io/EncodingBase.hpp>

#endif
