#ifndef DALNIM_LOG_SRC_CURRENTPREFIX_HPP
#define DALNIM_LOG_SRC_CURRENTPREFIX_HPP

#include <cstddef>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * The prefix of the record that the calling thread passes to the virtual log(const String&).
 *
 * That operation removes trailing white space, but not the space that ends the prefix of a record without
 * text. It has no parameter for the length of the prefix, and the text of a record may look like a prefix.
 */
class CurrentPrefix
{
public:
    /** @param prefix  must exist, at its address, until the end of the scope */
    explicit CurrentPrefix(std::string_view prefix) noexcept;
    ~CurrentPrefix();
    CurrentPrefix(const CurrentPrefix&) = delete;
    CurrentPrefix& operator=(const CurrentPrefix&) = delete;

    /** Returns the length of the prefix if `msg` begins with it, otherwise 0. */
    static std::size_t lengthIn(std::string_view msg) noexcept;

private:
    /** The prefix of the enclosing record: a logger may log while it writes a record. */
    const std::string_view outer;
};

}

#endif
