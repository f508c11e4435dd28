#ifndef DALNIM_LOG_SRC_RECORDLINE_HPP
#define DALNIM_LOG_SRC_RECORDLINE_HPP

#include <dalnim/log/src/LineBuffer.hpp>

#include <string_view>

namespace com::kor::dal::nim::log {

class Header;
class Module;
class RecordBuffer;

/**
 * A record as a line: the prefix, the text without its trailing white space, and a newline.
 *
 * The prefix and the newline are written around the text, in the memory of the record, whose text is restored
 * at the end of the scope. Only a text that must be escaped is copied.
 */
class RecordLine
{
public:
    /** Both must exist as long as this object. */
    RecordLine(const Module& mod, const Header& rec) noexcept
        : module(mod), record(rec), buffer(nullptr), end(0), replaced(0)
    {
    }
    ~RecordLine()
    {
        restoreText();
    }
    RecordLine(const RecordLine&) = delete;
    RecordLine& operator=(const RecordLine&) = delete;

    /**
     * Formats the line, also if it was formatted before with other settings. Exceptions of RecordPrefix
     * propagate.
     * @param prefixFormat     a PrefixFormat
     * @param escapesControls  whether the text and the name of the module are escaped by appendEscaped()
     * @throws std::bad_alloc if memory runs out
     */
    void format(unsigned int prefixFormat, bool escapesControls);
    /** Returns the line. Requires format(). */
    std::string_view view() const noexcept
    {
        return line;
    }

private:
    void formatEscaped(unsigned int prefixFormat);
    void restoreText() noexcept;

    const Module& module;
    const Header& record;
    std::string_view line;
    /** The memory of the record while it contains the newline; otherwise null. */
    RecordBuffer* buffer;
    /** Index of the newline in it. */
    std::size_t end;
    /** The byte that the newline has replaced. */
    char replaced;
    /** The line, if it is escaped. */
    LineBuffer escaped;
};

}

#endif
