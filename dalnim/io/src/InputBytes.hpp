#ifndef DALNIM_IO_SRC_INPUTBYTES_HPP
#define DALNIM_IO_SRC_INPUTBYTES_HPP

#include <cstddef>
#include <istream>
#include <string_view>

namespace com::kor::dal::nim::io {

/**
 * The bytes of an input stream, as many at a time as its buffer holds. To the stream this looks
 * like calls of peek() and get(): its position is behind the last byte that was consumed, and it
 * waits for more only when nothing lies ready.
 */
class InputBytes
{
public:
    explicit InputBytes(std::istream& stream) noexcept : is(stream) {}

    /**
     * The bytes that lie ready, at least one; none at the end of the data. They are valid until
     * the next use of the stream or of a stream that shares its buffer.
     *
     * @throws sys::system_error when the stream failed for another reason than the end of its data
     */
    std::string_view peek();

    /** Reads `count` of the bytes that peek() gave. */
    void consume(std::size_t count);

private:
    std::istream& is;
    /** What peek() shows of a stream without a buffer. */
    char single = 0;
};

}

#endif
