#ifndef DALNIM_TOOLS_SUPPORT_OUTPUT_HPP
#define DALNIM_TOOLS_SUPPORT_OUTPUT_HPP

#include <string>
#include <string_view>

namespace nimtools {

/** Buffered standard output that reports write errors. */
class Output
{
public:
    Output();
    /** Discards output that was not flushed. */
    ~Output() = default;

    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    Output& operator<<(std::string_view text)
    {
        buffer.append(text);
        if (buffer.size() >= CHUNK) {
            flush();
        }
        return *this;
    }
    Output& operator<<(char c)
    {
        return *this << std::string_view(&c, 1);
    }

    /**
     * Writes the buffered output.
     * @throws Failure if it cannot be written, as `operator<<` does
     */
    void flush();

private:
    /** Size in bytes at which the buffer is flushed. */
    static constexpr std::size_t CHUNK = 64UL * 1024;

    std::string buffer;
};

}

#endif
