#ifndef DALNIM_IO_SRC_PROPERTIESREADER_HPP
#define DALNIM_IO_SRC_PROPERTIESREADER_HPP

#include <dalnim/io/Properties.hpp>

#include <cstddef>
#include <istream>
#include <string_view>

namespace com::kor::dal::nim::io {

/**
 * Reads a properties file: splits it into logical lines, decodes them, and evaluates its pragmas. Independent
 * of the table that is filled.
 */
class PropertiesReader
{
public:
    /** The kinds of logical lines. */
    enum LineKind { NOTHING, PROPERTY, INCLUDE };

    /** Reads `is`, which must outlive the reader, from its current position. */
    PropertiesReader(std::istream& is, const String& filepath, Properties::Severity sev);
    PropertiesReader(const PropertiesReader&) = delete;
    PropertiesReader& operator=(const PropertiesReader&) = delete;
    ~PropertiesReader();

    /** Returns false at the end of the file. */
    bool good() const
    {
        return input.good();
    }

    /** Reads the next logical line. Throws std::invalid_argument if it is malformed, or std::bad_alloc. */
    LineKind read();

    /** Returns the decoded text of a PROPERTY. It is valid until the next read(). */
    std::string_view text(bool keep_trailing_ws) const
    {
        return std::string_view(logical.data(), keep_trailing_ws ? used : significant);
    }

    /** Returns the path of an INCLUDE. */
    const String& includePath() const
    {
        return include;
    }

    /** Returns the severity that applies to the current line. */
    Properties::Severity severity() const
    {
        return sev;
    }

    /** Returns the position of the line that was read last, as "name:12". */
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
    /** The exception mask of the stream, restored by the destructor. */
    std::ios_base::iostate exception_mask;
    /** The file's name in messages, and the directory of its includes. */
    String name;
    String directory;
    Properties::Severity sev;
    String include;

    /** The current physical line and its number. */
    String line;
    unsigned int line_number = 0;

    /**
     * The buffer of logical lines, which only grows. The current line has `used` bytes; without trailing
     * white space it has `significant` bytes.
     */
    String logical;
    std::size_t used = 0;
    std::size_t significant = 0;
};

}

#endif
