#ifndef TESTS_IO_PIECEBUFFER_HPP
#define TESTS_IO_PIECEBUFFER_HPP

#include <algorithm>
#include <cstddef>
#include <functional>
#include <streambuf>
#include <string>
#include <utility>

/**
 * Returns a text in pieces, like a pipe or a terminal. With pieces of 0 it has no buffer, and returns one
 * byte after another.
 */
class PieceBuffer : public std::streambuf
{
public:
    PieceBuffer(std::string text, std::size_t piece_length) : all(std::move(text)), length(piece_length) {}

    /** Number of bytes read. */
    std::size_t position() const
    {
        return next - static_cast<std::size_t>(egptr() - gptr());
    }

    /** Called with the position before each further piece. May throw. */
    std::function<void(std::size_t)> before_piece;

protected:
    int_type underflow() override
    {
        if (before_piece) {
            before_piece(next);
        }
        if (next == all.size()) {
            return traits_type::eof();
        }
        if (length != 0) {
            const std::size_t count = std::min(length, all.size() - next);
            setg(&all[next], &all[next], &all[next] + count);
            next += count;
            return traits_type::to_int_type(*gptr());
        }
        return traits_type::to_int_type(all[next]);
    }

    int_type uflow() override
    {
        const int_type c = underflow();
        if (length != 0 && !traits_type::eq_int_type(c, traits_type::eof())) {
            gbump(1);
        } else if (length == 0 && next < all.size()) {
            ++next;
        }
        return c;
    }

private:
    std::string all;
    const std::size_t length;
    std::size_t next = 0;
};

#endif
