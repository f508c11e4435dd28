// Number parsing: the first byte of the input selects whether `errno` is set before, the rest is the string.
// Each type is compared with a simple model.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>

#include <fuzz/support/Require.hpp>
#include <tests/type/NumberOpsCheck.hpp>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    require(numbermodel::disagreement(text, (data[0] & 1) != 0 ? ERANGE : 0).empty());
    return 0;
}
