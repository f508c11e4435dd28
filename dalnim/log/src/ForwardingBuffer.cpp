#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/ForwardingBuffer.hpp>

#include <new>

namespace com::kor::dal::nim::log {

ForwardingBuffer::int_type ForwardingBuffer::overflow(int_type c)
{
    if (traits_type::eq_int_type(c, traits_type::eof())) {
        return traits_type::not_eof(c);
    }
    try {
        const int_type inserted = target.sputc(traits_type::to_char_type(c));
        truncated = truncated || traits_type::eq_int_type(inserted, traits_type::eof());
        return inserted;
    } catch (const std::bad_alloc&) {
        truncated = true;
        throw;
    }
}

std::streamsize ForwardingBuffer::xsputn(const char* text, std::streamsize length)
{
    try {
        const std::streamsize inserted = target.sputn(text, length);
        truncated = truncated || inserted != length;
        return inserted;
    } catch (const std::bad_alloc&) {
        truncated = true;
        throw;
    }
}

ForwardingBuffer::pos_type ForwardingBuffer::seekoff(off_type offset, std::ios_base::seekdir from,
                                                     std::ios_base::openmode which)
{
    return target.pubseekoff(offset, from, which);
}

ForwardingBuffer::pos_type ForwardingBuffer::seekpos(pos_type position, std::ios_base::openmode which)
{
    return target.pubseekpos(position, which);
}

int ForwardingBuffer::sync()
{
    return target.pubsync();
}

void ForwardingBuffer::imbue(const std::locale& locale)
{
    target.pubimbue(locale);
}

std::streambuf* ForwardingBuffer::setbuf(char* memory, std::streamsize size)
{
    target.pubsetbuf(memory, size);
    return this;
}

std::streamsize ForwardingBuffer::showmanyc()
{
    return target.in_avail();
}

}
