#ifndef DALNIM_LOG_FIELDWRITER_HPP
#define DALNIM_LOG_FIELDWRITER_HPP

#include <qv/pmx/api.h>

#include <iosfwd>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * Inserts fields into streams, for field(), which documents their form. Any thread may call any operation.
 *
 * Width and formats of the stream do not apply; the width is reset, as by every insertion.
 */
class DALNIM_API FieldWriter
{
public:
    static constexpr const char CLASS_NAME[] = "FieldWriter";

    FieldWriter() = delete;

    /** Writes a text. Allocates nothing, other than the stream does. */
    static void writeText(std::ostream& os, std::string_view name, std::string_view value);
    /** Writes a number in decimal. Allocates nothing, other than the stream does. */
    static void writeNumber(std::ostream& os, std::string_view name, long long value);
    /** @copydoc writeNumber(std::ostream&, std::string_view, long long) */
    static void writeNumber(std::ostream& os, std::string_view name, unsigned long long value);
    /**
     * Writes the shortest decimal number that reads back as the same value. Allocates nothing, other than the
     * stream does.
     */
    static void writeNumber(std::ostream& os, std::string_view name, float value);
    /** @copydoc writeNumber(std::ostream&, std::string_view, float) */
    static void writeNumber(std::ostream& os, std::string_view name, double value);
    /** @copydoc writeNumber(std::ostream&, std::string_view, float) */
    static void writeNumber(std::ostream& os, std::string_view name, long double value);

    /**
     * Writes what `insert` inserts into a stream with the initial formats and the classic locale. Exceptions
     * of `insert` propagate; then nothing is written.
     * @param value  passed to `insert`
     * @throws std::bad_alloc if memory runs out; then nothing is written
     */
    static void writeInserted(std::ostream& os, std::string_view name,
                              void (*insert)(std::ostream& os, const void* value), const void* value);
};

}

#endif
