#ifndef DALNIM_LOG_SRC_RECORDPREFIX_HPP
#define DALNIM_LOG_SRC_RECORDPREFIX_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/src/DateTimeText.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <optional>
#include <string_view>

namespace com::kor::dal::nim::log {

class Header;
class LineBuffer;
class Module;

/**
 * The prefix of a record: the fields that the output mask selects, joined by SEPARATOR, then TERMINATOR.
 * Fields that it does not select are not computed.
 *
 * It refers to the record and to the module, which must exist as long.
 */
class RecordPrefix
{
public:
    /**
     * Determines the fields. Exceptions from looking up the host name, the process name or the date
     * propagate.
     * @param format           a PrefixFormat
     * @param escapesControls  whether the name of the module is escaped by appendEscaped()
     */
    RecordPrefix(unsigned int format, const Module& mod, const Header& rec, bool escapesControls);

    /** Returns an upper bound of the length. */
    std::size_t maxLength() const noexcept
    {
        return bound;
    }
    /** Writes the prefix so that it ends at `end`, and returns its beginning. Requires maxLength() bytes. */
    char* writeBefore(char* end) const noexcept;
    /** Appends the prefix to a line. */
    void appendTo(LineBuffer& line) const;

private:
    std::string_view count(std::string_view field) noexcept
    {
        bound += field.size();
        return field;
    }

    /** A PrefixFormat. */
    const unsigned int mask;
    std::size_t bound;
    std::optional<DateTimeText> date;
    std::string_view host;
    std::string_view process;
    std::string_view module;
    std::string_view severity;
    std::string_view sourceFile;
    /** What `module` refers to if the name must be escaped. */
    String escapedModule;
    const Header& record;
};

}

#endif
