#ifndef DALNIM_LOG_SRC_FORWARDINGBUFFER_HPP
#define DALNIM_LOG_SRC_FORWARDINGBUFFER_HPP

#include <ios>
#include <locale>
#include <streambuf>

namespace com::kor::dal::nim::log {

/**
 * A stream buffer that forwards all operations to a std::stringbuf, and records whether memory ran out during
 * an insertion: the stream catches that exception, and sets the same bit as for other failures. The
 * std::stringbuf of libc++ catches it itself, and accepts fewer characters.
 */
class ForwardingBuffer : public std::streambuf
{
public:
    /** @param buffer  receives all operations; must exist as long as this object */
    explicit ForwardingBuffer(std::streambuf& buffer) : target(buffer) {}
    ForwardingBuffer(const ForwardingBuffer&) = delete;
    ForwardingBuffer& operator=(const ForwardingBuffer&) = delete;

    /** Returns true if memory ran out during an insertion. */
    bool isTruncated() const noexcept
    {
        return truncated;
    }
    /** Forgets that memory ran out: the text has been replaced. */
    void reset() noexcept
    {
        truncated = false;
    }

protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* text, std::streamsize length) override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
    int sync() override;
    void imbue(const std::locale& locale) override;
    std::streambuf* setbuf(char* memory, std::streamsize size) override;
    std::streamsize showmanyc() override;

private:
    std::streambuf& target;
    bool truncated = false;
};

}

#endif
