#ifndef TESTS_SUPPORT_GENERATEDTEXT_HPP
#define TESTS_SUPPORT_GENERATEDTEXT_HPP

#include <cstddef>
#include <functional>
#include <streambuf>
#include <string>
#include <utility>

namespace support {

/** A stream buffer for a text that is too large to be stored, and is generated while it is read. */
class GeneratedText : public std::streambuf
{
public:
    /** @param makeNext returns the next piece; an empty one ends the text */
    explicit GeneratedText(std::function<std::string()> makeNext) : make(std::move(makeNext)) {}

    /** A repeated piece, with a start and an end. */
    static std::function<std::string()> repeated(std::string first, std::string piece, std::size_t times,
                                                 std::string last)
    {
        enum Place { FIRST, MIDDLE, LAST, END };
        return [=, place = FIRST, left = times]() mutable {
            if (place == FIRST) {
                place = MIDDLE;
                if (!first.empty()) {
                    return first;
                }
            }
            if (place == MIDDLE && left-- > 0) {
                return piece;
            }
            const bool is_end = std::exchange(place, END) == END;
            return is_end ? std::string() : last;
        };
    }

protected:
    int_type underflow() override
    {
        piece = make();
        if (piece.empty()) {
            return traits_type::eof();
        }
        setg(piece.data(), piece.data(), piece.data() + piece.size());
        return traits_type::to_int_type(piece[0]);
    }

private:
    std::function<std::string()> make;
    std::string piece;
};

}

#endif
