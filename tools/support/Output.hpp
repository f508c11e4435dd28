#ifndef DALNIM_TOOLS_SUPPORT_OUTPUT_HPP
#define DALNIM_TOOLS_SUPPORT_OUTPUT_HPP

#include <string>
#include <string_view>

namespace nimtools {

/** Standard output, in large pieces. A failure to write is not overlooked. */
class Output
{
public:
    Output();
    /** Loses what was not flushed. */
    ~Output() = default;

    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    Output& operator<<(std::string_view text)
    {
        buffer.append(text);
        if (buffer.size() >= PIECE) {
            flush();
        }
        return *this;
    }
    Output& operator<<(char c)
    {
        return *this << std::string_view(&c, 1);
    }

    /** Throws Failure, as all that writes does. */
    void flush();

private:
    static constexpr std::size_t PIECE = 64UL * 1024;

    std::string buffer;
};

}

#endif
