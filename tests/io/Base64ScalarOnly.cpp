// Compiles Base64 into the program without the AVX2 loops, to test the scalar ones on every processor.

#include <dalnim/io/src/Base64Blocks.hpp>

namespace com::kor::dal::nim::io {

const Base64Blocks& base64Blocks() noexcept
{
    return BASE64_SCALAR;
}

}
