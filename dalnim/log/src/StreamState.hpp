#ifndef DALNIM_LOG_SRC_STREAMSTATE_HPP
#define DALNIM_LOG_SRC_STREAMSTATE_HPP

#include <array>
#include <cstddef>
#include <ios>
#include <locale>
#include <streambuf>

namespace com::kor::dal::nim::log {

/**
 * The initial state of a stream that is used again and again, and the way back to it: formats, error state,
 * locale, stream buffer, tied stream, and the callbacks and words that user code has attached.
 *
 * std::ios::copyfmt() resets all of that except the error state and the buffer, but costs as much as the rest
 * of a record. It is therefore called only if the bytes of the stream object have changed, after the settings
 * that are cheap to reset. Whatever is attached to a stream changes a member of it, so equal bytes mean an
 * equal state; different bytes may mean the same.
 */
class StreamState
{
public:
    /** Takes the present state of `stream`, a new one, and its present buffer, as the initial state. */
    explicit StreamState(std::ios& stream);
    StreamState(const StreamState&) = delete;
    StreamState& operator=(const StreamState&) = delete;

    /** Resets the stream. Callbacks that were attached to it are called with `erase_event`. */
    void restore() noexcept;
    /** Returns the initial locale. */
    const std::locale& locale() const noexcept
    {
        return initialLocale;
    }
    /** Imbues the stream, which is in its initial state, and makes `locale` the initial one. */
    void setLocale(const std::locale& locale);

private:
    typedef std::array<unsigned char, sizeof(std::ios)> Bytes;

    bool hasInitialBytes() const noexcept;
    void storeBytes() noexcept;

    std::ios& stream;
    std::streambuf* const buffer;
    /** Has the initial formats, and nothing attached. */
    std::ios initial;
    /** Keeps the locale alive: another one never has its address. */
    std::locale initialLocale;
    Bytes bytes;
};

}

#endif
