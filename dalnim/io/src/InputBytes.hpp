#ifndef DALNIM_IO_SRC_INPUTBYTES_HPP
#define DALNIM_IO_SRC_INPUTBYTES_HPP

#include <cstddef>
#include <istream>
#include <string_view>

namespace com::kor::dal::nim::io {

/**
 * Reads an input stream in pieces, as many bytes at a time as its buffer contains. The effect on the stream
 * is that of peek() and get(): its position is after the last consumed byte, and it blocks only if its buffer
 * is empty.
 */
class InputBytes
{
public:
    explicit InputBytes(std::istream& stream) noexcept : is(stream) {}

    /**
     * Returns the available bytes: at least one, or none at the end of the data. They are valid until the
     * next use of the stream or of a stream that shares its buffer.
     *
     * @throws sys::system_error  the value of `errno`, if the stream fails for another reason than the end of
     * its data
     */
    std::string_view peek();

    /** Consumes `count` of the bytes that peek() returned. */
    void consume(std::size_t count);

private:
    std::istream& is;
    /** The byte that peek() returns if the stream buffer has no get area. */
    char single = 0;
};

}

#endif
