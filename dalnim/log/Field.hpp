#ifndef DALNIM_LOG_FIELD_HPP
#define DALNIM_LOG_FIELD_HPP

#include <dalnim/log/FieldWriter.hpp>

#include <ostream>
#include <string_view>
#include <type_traits>

namespace com::kor::dal::nim::log {

/**
 * A name and a value, to be inserted into a stream; see field(). Refers to both, so it must be used in the
 * statement that creates it.
 */
template <class Value>
class Field
{
public:
    /** Refers to both arguments. */
    Field(std::string_view field_name, const Value& field_value) noexcept
        : name(field_name), value(field_value)
    {
    }

    /** Inserts the field. */
    friend std::ostream& operator<<(std::ostream& os, const Field& field)
    {
        field.writeTo(os);
        return os;
    }

private:
    void writeTo(std::ostream& os) const
    {
        if constexpr (std::is_same_v<Value, bool>) {
            FieldWriter::writeText(os, name, value ? "true" : "false");
        } else if constexpr (std::is_same_v<Value, char>) {
            FieldWriter::writeText(os, name, std::string_view(&value, 1));
        } else if constexpr (std::is_integral_v<Value> && std::is_signed_v<Value>) {
            FieldWriter::writeNumber(os, name, static_cast<long long>(value));
        } else if constexpr (std::is_integral_v<Value>) {
            FieldWriter::writeNumber(os, name, static_cast<unsigned long long>(value));
        } else if constexpr (std::is_floating_point_v<Value>) {
            FieldWriter::writeNumber(os, name, value);
        } else if constexpr (std::is_convertible_v<const Value&, const char*>) {
            const char* const text = value;
            FieldWriter::writeText(os, name, text != nullptr ? std::string_view(text) : std::string_view());
        } else if constexpr (std::is_convertible_v<const Value&, std::string_view>) {
            FieldWriter::writeText(os, name, value);
        } else {
            FieldWriter::writeInserted(
                os, name,
                [](std::ostream& text, const void* inserted) {
                    text << *static_cast<const Value*>(inserted);
                },
                &value);
        }
    }

    const std::string_view name;
    const Value& value;
};

/**
 * Makes a value a field of a record, which programs can find by its name:
 *
 *     NIM_LOG(Severity_WARNING) << "payment failed" << log::field("user", id) << log::field("reason", text);
 *
 * writes `payment failed user=17 reason="card expired"`. FieldReader reads the fields back from the text.
 *
 * A field is written as a space, the name, "=" and the value, at the place where it is inserted. The value is
 * put in double quotes if it is empty or contains white space, "=", `"` or a control character. In quotes,
 * `"` and the backslash are written with a backslash in front, newline, tab and carriage return as `\n`, `\t`
 * and `\r`, and all other control characters (bytes 0 to 31, and 127) as `\xNN` with two lower-case digits.
 *
 * A text is written as it is, a null pointer as the empty text, a `bool` as `true` or `false`, and a number
 * in decimal, whatever formats and locale the stream has; `signed char` and `unsigned char` are numbers. None
 * of these allocates memory, other than for the stream. Any other value is written as a stream with the
 * initial formats and the classic locale shows it.
 *
 * @param name   a letter or `_`, then letters, digits, `_`, `.` and `-`. Other characters are written as `_`.
 * @param value  of a type that can be inserted into a stream. An exception of its insertion propagates; then
 * no part of the field is written.
 * @return an object for any `std::ostream`. It refers to both arguments.
 */
template <class Value>
Field<Value> field(std::string_view name, const Value& value) noexcept
{
    return Field<Value>(name, value);
}

}

#endif
