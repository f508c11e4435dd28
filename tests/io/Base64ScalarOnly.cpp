// The processor of this program can nothing: it compiles Base64 into itself, without the fast loops.

#include <dalnim/io/src/Base64Blocks.hpp>

namespace com::kor::dal::nim::io {

const Base64Blocks& base64Blocks() noexcept
{
    return BASE64_SCALAR;
}

}
