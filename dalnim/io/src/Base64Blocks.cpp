#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/Base64Blocks.hpp>

#include <qv/pmx/src/processor.hpp>

namespace com::kor::dal::nim::io {

const Base64Blocks& base64Blocks() noexcept
{
#if QV_IS_X86_64
    return __builtin_cpu_supports("avx2") != 0 ? BASE64_AVX2 : BASE64_SCALAR;
#elif QV_IS_ARM64
    return BASE64_NEON;
#else
    return BASE64_SCALAR;
#endif
}

}
