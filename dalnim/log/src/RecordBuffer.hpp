#ifndef DALNIM_LOG_SRC_RECORDBUFFER_HPP
#define DALNIM_LOG_SRC_RECORDBUFFER_HPP

#include <cstddef>
#include <ios>
#include <memory>
#include <streambuf>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * The stream buffer of a record: an output-only string buffer whose memory has room for the prefix in front
 * of the text, and for a newline after it. The record thus becomes a line without copying the text.
 *
 * A text of the usual length needs no memory other than the object's own. One thread at a time uses an
 * object.
 */
class RecordBuffer : public std::streambuf
{
public:
    RecordBuffer() noexcept;
    RecordBuffer(const RecordBuffer&) = delete;
    RecordBuffer& operator=(const RecordBuffer&) = delete;

    /** Returns all that was inserted. Valid until the next operation that is not const. */
    std::string_view text() const noexcept
    {
        return {textBegin, static_cast<std::size_t>(textEnd() - textBegin)};
    }
    /** Replaces the text. The next insertion overwrites its beginning, as in a std::stringbuf. */
    void assign(std::string_view text);
    /** Replaces the trailing white space of the text by `addition`. */
    void append(std::string_view addition);
    /** Removes the text, and frees the memory of one of unusual length. */
    void reset() noexcept;
    /** Returns true if memory ran out during an insertion since the text was last replaced or removed. */
    bool isTruncated() const noexcept
    {
        return truncated;
    }

    /** Makes room for `size` bytes in front of the text, and returns the beginning of the text. */
    char* reserveFront(std::size_t size)
    {
        if (size > frontSize) {
            relocate(size, static_cast<std::size_t>(epptr() - textBegin));
        }
        return textBegin;
    }
    /** Replaces the byte at `index`, at most the length of the text, and returns its old value. */
    char exchange(std::size_t index, char c) noexcept
    {
        const char previous = textBegin[index];
        textBegin[index] = c;
        return previous;
    }

protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* text, std::streamsize length) override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
    /** Returns -1: there is nothing to read. */
    std::streamsize showmanyc() override;

private:
    /** Bytes for the prefix: more than those of all fields with names of the usual length. */
    static constexpr std::size_t FRONT_SIZE = 256;
    static constexpr std::size_t INLINE_SIZE = 1280;
    /** Size in bytes up to which heap memory is not freed by reset(). */
    static constexpr std::size_t KEPT_SIZE = 4096;

    char* memory() noexcept
    {
        return heapBytes != nullptr ? heapBytes.get() : inlineBytes;
    }
    /** The text extends past the current position if the statement has sought back. */
    const char* textEnd() const noexcept
    {
        return pptr() > highMark ? pptr() : highMark;
    }
    void setPosition(std::size_t position) noexcept;
    /** Makes room for `added` bytes after the current position. */
    void grow(std::size_t added);
    /** Moves the text to new memory for `capacity` bytes, with `newFrontSize` bytes in front of it. */
    void relocate(std::size_t newFrontSize, std::size_t capacity);

    /** Memory of a text of unusual length; null while inlineBytes is used. */
    std::unique_ptr<char[]> heapBytes;
    std::size_t heapSize;
    /** Bytes in front of the text. */
    std::size_t frontSize;
    char* textBegin;
    /** End of the text when the position was last changed other than by an insertion. */
    const char* highMark;
    bool truncated;
    char inlineBytes[INLINE_SIZE];
};

}

#endif
