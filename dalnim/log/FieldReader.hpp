#ifndef DALNIM_LOG_FIELDREADER_HPP
#define DALNIM_LOG_FIELDREADER_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * Finds the fields in the text of a record, in the form that field() writes:
 *
 *     FieldReader fields("payment failed user=17 reason=\"card expired\"");
 *     while (fields.next()) {
 *         std::cout << fields.name() << " is " << fields.value() << '\n';
 *     }
 *
 * A field is a word `name=value` at any place of the text, also of one with several lines. The name begins
 * with a letter or `_`, and continues with letters, digits, `_`, `.` and `-`. The value has no quotes, or is
 * quoted as field() does it. Any other word is skipped, and so is an empty value without quotes, as in
 * "a= 5". Text that has the form of a field counts as one, whatever has inserted it.
 *
 * If control characters are escaped (see Control::setEscapeControls()), the backslashes of a text in a log
 * file are doubled; undo that first.
 *
 * One thread at a time uses an object.
 */
class DALNIM_API FieldReader
{
public:
    static constexpr const char CLASS_NAME[] = "FieldReader";

    /** @param text  must exist, at its address, as long as this object is used */
    explicit FieldReader(std::string_view text) noexcept : rest(text), isQuoted(false) {}

    /** Advances to the next field. Returns false if there is none. */
    bool next() noexcept;

    // Of the current field. Require that next() has returned true.

    /** Returns the name; a part of the text. */
    std::string_view name() const noexcept
    {
        return fieldName;
    }
    /**
     * Returns the value without its quotes and escapes.
     * @throws std::bad_alloc if memory runs out
     */
    String value() const;
    /** Returns true if value() is equal to `other`. Allocates nothing. */
    bool hasValue(std::string_view other) const noexcept;

private:
    /** The text after the current field. */
    std::string_view rest;
    std::string_view fieldName;
    /** The value as in the text, without the quotes around it. */
    std::string_view written;
    bool isQuoted;
};

}

#endif
