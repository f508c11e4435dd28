#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/RecordBuffer.hpp>

#include <dalnim/log/src/LogText.hpp>

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace com::kor::dal::nim::log {

// The bytes are written before they are read.
RecordBuffer::RecordBuffer() noexcept // NOLINT(cppcoreguidelines-pro-type-member-init)
    : heapSize(0), frontSize(FRONT_SIZE), textBegin(nullptr), highMark(nullptr), truncated(false)
{
    reset();
}

void RecordBuffer::reset() noexcept
{
    if (heapSize > KEPT_SIZE) {
        heapBytes.reset();
        heapSize = 0;
        frontSize = FRONT_SIZE;
    }
    const std::size_t size = heapSize != 0 ? heapSize : INLINE_SIZE;
    textBegin = memory() + frontSize;
    highMark = textBegin;
    truncated = false;
    setp(textBegin, memory() + size - 1);
}

void RecordBuffer::assign(std::string_view text)
{
    setPosition(0);
    if (text.size() > static_cast<std::size_t>(epptr() - textBegin)) {
        grow(text.size());
    }
    if (!text.empty()) {
        std::memmove(textBegin, text.data(), text.size());
    }
    highMark = textBegin + text.size();
    truncated = false;
}

void RecordBuffer::append(std::string_view addition)
{
    const std::size_t length = trimmedLength(text(), 0);
    highMark = textBegin + length;
    setPosition(length);
    RecordBuffer::xsputn(addition.data(), static_cast<std::streamsize>(addition.size()));
}

void RecordBuffer::setPosition(std::size_t position) noexcept
{
    setp(textBegin, epptr());
    for (; position > INT_MAX; position -= INT_MAX) {
        pbump(INT_MAX);
    }
    pbump(static_cast<int>(position));
}

void RecordBuffer::grow(std::size_t added)
{
    const auto position = static_cast<std::size_t>(pptr() - textBegin);
    const auto capacity = static_cast<std::size_t>(epptr() - textBegin);
    try {
        relocate(frontSize, std::max(2 * capacity, position + added));
    } catch (const std::bad_alloc&) {
        // The stream catches it, and sets badbit, which it also does for other reasons.
        truncated = true;
        throw;
    }
}

void RecordBuffer::relocate(std::size_t newFrontSize, std::size_t capacity)
{
    const std::size_t size = newFrontSize + capacity + 1;
    std::unique_ptr<char[]> larger(new char[size]);
    const std::string_view present = text();
    const auto position = static_cast<std::size_t>(pptr() - textBegin);
    std::memcpy(larger.get() + newFrontSize, present.data(), present.size());
    heapBytes = std::move(larger);
    heapSize = size;
    frontSize = newFrontSize;
    textBegin = heapBytes.get() + frontSize;
    highMark = textBegin + present.size();
    setp(textBegin, textBegin + capacity);
    setPosition(position);
}

RecordBuffer::int_type RecordBuffer::overflow(int_type c)
{
    if (traits_type::eq_int_type(c, traits_type::eof())) {
        return traits_type::not_eof(c);
    }
    if (pptr() == epptr()) {
        grow(1);
    }
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
}

std::streamsize RecordBuffer::xsputn(const char* text, std::streamsize length)
{
    if (length <= 0) {
        return 0;
    }
    const auto size = static_cast<std::size_t>(length);
    if (size > static_cast<std::size_t>(epptr() - pptr())) {
        grow(size);
    }
    std::memcpy(pptr(), text, size);
    if (length <= INT_MAX) {
        pbump(static_cast<int>(length));
    } else {
        setPosition(static_cast<std::size_t>(pptr() - textBegin) + size);
    }
    return length;
}

RecordBuffer::pos_type RecordBuffer::seekoff(off_type offset, std::ios_base::seekdir from,
                                             std::ios_base::openmode which)
{
    const pos_type failure(off_type(-1));
    if ((which & (std::ios_base::in | std::ios_base::out)) != std::ios_base::out) {
        return failure;
    }
    const off_type length = textEnd() - textBegin;
    const off_type base = from == std::ios_base::beg   ? 0
                          : from == std::ios_base::end ? length
                                                       : pptr() - pbase();
    if (offset < -base || offset > length - base) {
        return failure;
    }
    highMark = textEnd();
    setPosition(static_cast<std::size_t>(base + offset));
    return pos_type(base + offset);
}

RecordBuffer::pos_type RecordBuffer::seekpos(pos_type position, std::ios_base::openmode which)
{
    return RecordBuffer::seekoff(off_type(position), std::ios_base::beg, which);
}

std::streamsize RecordBuffer::showmanyc()
{
    return -1;
}

}
