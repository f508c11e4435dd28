#ifndef TESTS_XML_MODELTEXT_HPP
#define TESTS_XML_MODELTEXT_HPP

#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

namespace parsermodel {

/** The document of the model with the current position, and the character classes. */
class ModelText
{
public:
    void clear()
    {
        text_.clear();
        size_ = 0;
        p_ = 0;
    }

    void append(const std::string& piece)
    {
        text_ += piece.c_str();
        size_ = text_.size();
    }

    std::size_t size() const
    {
        return size_;
    }

    /** Returns true if the position is past the end of the text, not just at it. */
    bool isPast() const
    {
        return p_ > size_;
    }

    std::size_t position() const
    {
        return p_;
    }

    void step(std::size_t bytes = 1)
    {
        p_ += bytes;
    }

    /** Returns the byte at the position, or NUL at or past the end of the text. */
    char byte() const
    {
        return at(p_);
    }

    void put(char byte)
    {
        text_[p_] = byte;
    }

    char at(std::size_t position) const
    {
        return position < size_ ? text_[position] : '\0';
    }

    /** Returns the string from a position to the next NUL. */
    std::string string(std::size_t position) const
    {
        return text_.c_str() + position;
    }

    /** Returns up to `count` bytes from a position, including NULs. */
    std::string bytes(std::size_t position, std::size_t count) const
    {
        return position < size_ ? text_.substr(position, count) : std::string();
    }

    bool startsWith(const char* expected) const
    {
        return text_.compare(p_, std::strlen(expected), expected) == 0;
    }

    bool moveTo(const char* wanted)
    {
        const std::size_t found = text_.find(wanted, p_);
        if (found == std::string::npos) {
            return false;
        }
        p_ = found;
        return true;
    }

    static bool isSpace(char byte)
    {
        return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\v' || byte == '\f' || byte == '\r';
    }

    static bool isNameStart(char byte)
    {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_' || byte == ':'
               || byte == '?' || byte == '!';
    }

    static bool isName(char byte)
    {
        return isNameStart(byte) || (byte >= '0' && byte <= '9') || byte == '-' || byte == '.';
    }

    /** Expands references in place. On failure, the part that was already expanded remains. */
    bool expand(std::size_t from)
    {
        static const std::pair<const char*, char> symbols[] = {
            {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
        std::size_t in = from;
        std::size_t out = from;
        while (at(in) != '\0') {
            char byte = at(in);
            if (byte != '&') {
                ++in;
            } else {
                bool known = false;
                for (const auto& [symbol, meaning] : symbols) {
                    if (!known && text_.compare(in, std::strlen(symbol), symbol) == 0) {
                        in += std::strlen(symbol);
                        byte = meaning;
                        known = true;
                    }
                }
                if (!known && at(in + 1) == '#') {
                    in += 2;
                    unsigned value = 0;
                    while (at(in) >= '0' && at(in) <= '9') {
                        value = (value * 10 + static_cast<unsigned>(at(in) - '0')) % 256;
                        ++in;
                    }
                    known = at(in) == ';';
                    ++in;
                    byte = static_cast<char>(value);
                }
                if (!known) {
                    return false;
                }
            }
            text_[out] = byte;
            ++out;
        }
        // If there was nothing to expand, nothing is written.
        if (out != in) {
            text_[out] = '\0';
        }
        return true;
    }

private:
    std::string text_;
    std::size_t size_ = 0;
    std::size_t p_ = 0;
};

}

#endif
