#ifndef DALNIM_IO_SRC_PROPERTIESREADER_HPP
#define DALNIM_IO_SRC_PROPERTIESREADER_HPP

#include <dalnim/io/Properties.hpp>

#include <cstddef>
#include <istream>
#include <string_view>

namespace com::kor::dal::nim::io {

/**
 * One properties file being read: takes it apart into logical lines, decodes them, and understands
 * its pragmas. It knows nothing of the table that is filled.
 */
class PropertiesReader
{
public:
    /** What a logical line is. */
    enum LineKind { NOTHING, PROPERTY, INCLUDE };

    /** Reads `is`, which must outlive the reader, from where it stands. */
    PropertiesReader(std::istream& is, const String& filepath, Properties::Severity sev);
    PropertiesReader(const PropertiesReader&) = delete;
    PropertiesReader& operator=(const PropertiesReader&) = delete;
    ~PropertiesReader();

    /** Whether there may be more lines. */
    bool good() const
    {
        return input.good();
    }

    /** Reads the next logical line. Throws std::invalid_argument if it is malformed, and std::bad_alloc. */
    LineKind read();

    /** The decoded text of a PROPERTY; valid until the next read(). */
    std::string_view text(bool keep_trailing_ws) const
    {
        return std::string_view(logical.data(), keep_trailing_ws ? used : significant);
    }

    /** The path that an INCLUDE names. */
    const String& includePath() const
    {
        return include;
    }

    /** What is to be reported of the lines that come now. */
    Properties::Severity severity() const
    {
        return sev;
    }

    /** The place of the line that was read last, as "name:12". */
    String position() const;

private:
    bool readLine();
    bool decode(std::size_t pos);
    void copyPlain(std::size_t pos, std::size_t end);
    void appendByte(unsigned int byte);
    std::size_t decodeEscape(std::size_t pos);
    std::size_t decodeUnicode(std::size_t pos);
    std::size_t decodeHex(std::size_t pos);
    std::size_t decodeOctal(std::size_t pos);

    LineKind readPragma(std::size_t pos);
    void setSeverity(const String& argument);
    void setInclude(const String& argument);

    std::size_t skipSpace(std::size_t pos) const;
    std::size_t wordEnd(std::size_t pos) const;
    [[noreturn]] void fail(const String& text) const;

    std::istream& input;
    /** What the stream raises by itself. */
    std::ios_base::iostate exception_mask;
    /** The file's name for messages, and the directory that its includes are looked for in. */
    String name;
    String directory;
    Properties::Severity sev;
    String include;

    /** The physical line, and how many have been read. */
    String line;
    unsigned int line_number = 0;

    /**
     * The logical line. The buffer only grows, from one line to the next; of it `used` bytes count,
     * and `significant` of them up to the last one that must not be trimmed.
     */
    String logical;
    std::size_t used = 0;
    std::size_t significant = 0;
};

}

#endif
