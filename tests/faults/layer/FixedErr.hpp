#ifndef TESTS_FAULTS_LAYER_FIXEDERR_HPP
#define TESTS_FAULTS_LAYER_FIXEDERR_HPP

#include <support/StandardErrorTo.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <streambuf>
#include <string>

namespace faults {

/** Captures standard error without allocating memory. Output that exceeds the buffer is discarded. */
class FixedErr
{
public:
    /** Returns the output since the last call. */
    std::string take()
    {
        return buffer.take();
    }

private:
    class Buffer : public std::streambuf
    {
    public:
        std::string take()
        {
            const std::string text(bytes.data(), length);
            length = 0;
            return text;
        }

    private:
        int_type overflow(int_type byte) override
        {
            const char c = traits_type::to_char_type(byte);
            xsputn(&c, 1);
            return traits_type::not_eof(byte);
        }
        std::streamsize xsputn(const char* text, std::streamsize count) override
        {
            const std::size_t fits = std::min(static_cast<std::size_t>(count), bytes.size() - length);
            std::copy_n(text, fits, bytes.begin() + static_cast<std::ptrdiff_t>(length));
            length += fits;
            return count;
        }

        std::array<char, 65536> bytes{};
        std::size_t length = 0;
    };

    Buffer buffer;
    const support::StandardErrorTo captured{&buffer};
};

}

#endif
