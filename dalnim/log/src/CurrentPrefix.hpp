#ifndef DALNIM_LOG_SRC_CURRENTPREFIX_HPP
#define DALNIM_LOG_SRC_CURRENTPREFIX_HPP

#include <cstddef>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * The prefix of the record that the calling thread passes to the virtual log(const String&).
 *
 * A record is a string there, which loses its trailing white space; but a record without a text keeps the
 * blank that ends its prefix. The operation cannot be given the length of the prefix, and the text of a
 * record may look like a prefix.
 */
class CurrentPrefix
{
public:
    /** @param prefix must exist, at its place, until the end of the scope */
    explicit CurrentPrefix(std::string_view prefix) noexcept;
    ~CurrentPrefix();
    CurrentPrefix(const CurrentPrefix&) = delete;
    CurrentPrefix& operator=(const CurrentPrefix&) = delete;

    /** Returns the length of the prefix that `msg` begins with; 0 for a text that is not the record's. */
    static std::size_t lengthIn(std::string_view msg) noexcept;

private:
    /** That of the record around this one: a logger may log while it writes a record. */
    const std::string_view outer;
};

}

#endif
