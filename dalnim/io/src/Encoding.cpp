#include <dalnim/dalbase.hpp>

#include <dalnim/io/Encoding.hpp>

namespace com::kor::dal::nim::io {

EncodingBase::EncodingBase() = default;
EncodingBase::~EncodingBase() = default;

Encoder::Encoder() = default;
Encoder::~Encoder() = default;

Decoder::Decoder() = default;
Decoder::~Decoder() = default;

}
