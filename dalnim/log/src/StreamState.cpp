#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/StreamState.hpp>

#include <cstring>

namespace com::kor::dal::nim::log {

StreamState::StreamState(std::ios& new_stream)
    : stream(new_stream), buffer(new_stream.rdbuf()), initial(nullptr), initialLocale(new_stream.getloc())
{
    // Some libraries determine the fill character at its first use.
    stream.fill(stream.fill());
    initial.copyfmt(stream);
    storeBytes();
}

void StreamState::restore() noexcept
{
    if (stream.rdbuf() != buffer) {
        stream.rdbuf(buffer);
    }
    if (!stream.good()) {
        stream.clear();
    }
    if (stream.exceptions() != std::ios_base::goodbit) {
        stream.exceptions(std::ios_base::goodbit);
    }
    stream.flags(initial.flags());
    stream.precision(initial.precision());
    stream.width(initial.width());
    stream.fill(initial.fill());
    stream.tie(initial.tie());
    if (!hasInitialBytes()) {
        stream.copyfmt(initial);
    }
}

void StreamState::setLocale(const std::locale& locale)
{
    stream.imbue(locale);
    initial.imbue(locale);
    initialLocale = locale;
    storeBytes();
}

bool StreamState::hasInitialBytes() const noexcept
{
    return std::memcmp(static_cast<const void*>(&stream), bytes.data(), bytes.size()) == 0;
}

void StreamState::storeBytes() noexcept
{
    std::memcpy(bytes.data(), static_cast<const void*>(&stream), bytes.size());
}

}
